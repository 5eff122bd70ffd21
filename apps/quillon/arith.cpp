// quillon arith OP: two pictures by a rule, or one by a function of its grey value. An operation is
// a row of a table.
#include <algorithm>
#include <array>
#include <iterator>
#include <memory>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

struct Options {
  std::string a, b, out;
  int bits = 1;
  double gain = 1, offset = 0;
};

struct PairOperation {
  const char* name;
  Operation operation;
  void (*run)(const GreyImage*, const GreyImage*, GreyImage*);
};

const PairOperation kPairs[] = {
    {"add", {"IxImageAdd", "arith add A B OUT", "A plus B, at most 255"}, IxImageAdd},
    {"sub", {"IxImageSub", "arith sub A B OUT", "A minus B, at least 0"}, IxImageSub},
    {"mul", {"IxImageMul", "arith mul A B OUT", "A times B, at most 255"}, IxImageMul},
    {"div", {"IxImageDiv", "arith div A B OUT", "A over B, truncated"}, IxImageDiv},
    {"and", {"IxImageBirwiseAND", "arith and A B OUT", "bits in both"}, IxImageBirwiseAND},
    {"or", {"IxImageBirwiseOR", "arith or A B OUT", "bits in either"}, IxImageBirwiseOR},
    {"xor", {"IxImageBirwiseXOR", "arith xor A B OUT", "bits in one only"}, IxImageBirwiseXOR},
    {"equal", {"IxImageEqual", "arith equal A B OUT", "white where A equals B"}, IxImageEqual},
    {"not-equal",
     {"IxImageNOTEqual", "arith not-equal A B OUT", "white where A differs from B"},
     IxImageNOTEqual},
};

struct MapOperation {
  const char* name;
  Operation operation;
  void (*addOptions)(Command, Options&);
  void (*run)(GreyImage&, const Options&);
};

void AddNothing(Command, Options&) {}

void AddBits(Command command, Options& options) {
  command.AddOption("--bits", options.bits, "how far; 8 and more give black")
      .Required()
      .NotNegative();
}

void AddGainAndOffset(Command command, Options& options) {
  command.AddOption("--gain", options.gain, "factor (1)");
  command.AddOption("--offset", options.offset, "added to the product (0)");
}

const MapOperation kMaps[] = {
    {"shift-left",
     {"IxImageShiftLeft", "arith shift-left IN OUT --bits N", "grey values doubled N times"},
     AddBits,
     [](GreyImage& image, const Options& o) { IxImageShiftLeft(&image, &image, o.bits); }},
    {"shift-right",
     {"IxImageShiftRight", "arith shift-right IN OUT --bits N", "grey values halved N times"},
     AddBits,
     [](GreyImage& image, const Options& o) { IxImageShiftRight(&image, &image, o.bits); }},
    {"invert",
     {"IxImageInvert", "arith invert IN OUT", "255 minus the grey value"},
     AddNothing,
     [](GreyImage& image, const Options&) { IxImageInvert(&image, &image); }},
    {"gain-offset",
     {"IxImageGainOffset", "arith gain-offset IN OUT --gain G --offset O",
      "the grey value times G plus O"},
     AddGainAndOffset,
     [](GreyImage& image, const Options& o) {
       IxImageGainOffset(&image, &image, o.gain, o.offset);
     }},
};

std::string Size(const GreyImage& image) {
  return std::to_string(image.width) + " x " + std::to_string(image.height);
}

void RunPair(const PairOperation& pair, const Options& options) {
  GreyImage a, b;
  ReadImage(options.a, a);
  ReadImage(options.b, b);
  if (a.width != b.width || a.height != b.height) {
    throw Failure("the pictures have different sizes: '" + options.a + "' " + Size(a) + ", '" +
                  options.b + "' " + Size(b));
  }
  pair.run(&a, &b, &a);
  WriteImage(options.out, a);
}

void RunMap(const MapOperation& map, const Options& options) {
  GreyImage image;
  ReadImage(options.a, image);
  map.run(image, options);
  WriteImage(options.out, image);
}

void AddArithmetic(Command app) {
  auto options = std::make_shared<Options>();
  const Command command = app.Add("arith", "Calculate with the pixels of one or two pictures");
  command.NeedsSubcommand();
  for (const PairOperation& pair : kPairs) {
    const Command named = command.Add(pair.name, pair.operation.summary);
    AddPictureToRead(named, "A", options->a);
    AddPictureToRead(named, "B", options->b);
    AddPictureToWrite(named, "OUT", options->out);
    named.Runs([&pair, options] { RunPair(pair, *options); });
  }
  for (const MapOperation& map : kMaps) {
    const Command named = command.Add(map.name, map.operation.summary);
    AddPictureToRead(named, "IN", options->a);
    AddPictureToWrite(named, "OUT", options->out);
    map.addOptions(named, *options);
    named.Runs([&map, options] { RunMap(map, *options); });
  }
}

const auto kOperations = [] {
  std::array<Operation, std::size(kPairs) + std::size(kMaps)> operations;
  const auto listed = [](const auto& row) { return row.operation; };
  const auto end = std::transform(std::begin(kPairs), std::end(kPairs), operations.begin(), listed);
  std::transform(std::begin(kMaps), std::end(kMaps), end, listed);
  return operations;
}();

}  // namespace

const Family kPixelArithmetic = {"pixel arithmetic", AddArithmetic, kOperations};

}  // namespace quillon::app
