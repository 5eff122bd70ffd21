// quillon filter NAME: edges, sharpening, medians, smoothing, convolution. A filter is a row of the
// table.
#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <memory>
#include <variant>
#include <vector>

#include "commands.h"
#include "kit/images/image_files.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

using Plain = void (*)(const GreyImage*, GreyImage*);
using Sized = void (*)(const GreyImage*, GreyImage*, int size);

struct Weighed {
  void (*run)(const GreyImage*, GreyImage*, const int* kernel);
  int size;
};

struct Filter {
  const char* name;
  Operation operation;
  std::variant<Plain, Sized, Weighed> run;
};

const Filter kFilters[] = {
    {"sobel",
     {"IxSobel", "filter sobel IN OUT", "edge strength, rows and columns weighed 1 2 1"},
     IxSobel},
    {"prewitt",
     {"IxPrewitt", "filter prewitt IN OUT", "edge strength, rows and columns weighed 1 1 1"},
     IxPrewitt},
    {"robert",
     {"IxRobert", "filter robert IN OUT", "edge strength along the diagonals of 2 x 2 pixels"},
     IxRobert},
    {"laplacian",
     {"IxLaplacian", "filter laplacian IN OUT", "how far a pixel exceeds its eight neighbours"},
     IxLaplacian},
    {"laplacian-sharpen",
     {"IxLaplacianSharping", "filter laplacian-sharpen IN OUT", "the picture plus its Laplacian"},
     IxLaplacianSharping},
    {"median3x3",
     {"IxMedianFilter3x3", "filter median3x3 IN OUT", "the median of 3 x 3 pixels"},
     IxMedianFilter3x3},
    {"median5x5",
     {"IxMedianFilter5x5", "filter median5x5 IN OUT", "the median of 5 x 5 pixels"},
     IxMedianFilter5x5},
    {"gaussian3x3",
     {"IxGaussianSmoothing3x3", "filter gaussian3x3 IN OUT", "weights 1 2 1 in both directions"},
     IxGaussianSmoothing3x3},
    {"gaussian5x5",
     {"IxGaussianSmoothing5x5", "filter gaussian5x5 IN OUT", "weights 1 4 6 4 1"},
     IxGaussianSmoothing5x5},
    {"gaussian7x7",
     {"IxGaussianSmoothing7x7", "filter gaussian7x7 IN OUT", "weights 1 6 15 20 15 6 1"},
     IxGaussianSmoothing7x7},
    {"mean",
     {"IxMeanSmoothing", "filter mean IN OUT --size N", "the mean of N x N pixels, N odd"},
     IxMeanSmoothing},
    {"mean3x3",
     {"IxMeanSmoothing3x3", "filter mean3x3 IN OUT", "the mean of 3 x 3 pixels"},
     IxMeanSmoothing3x3},
    {"mean5x5",
     {"IxMeanSmoothing5x5", "filter mean5x5 IN OUT", "the mean of 5 x 5 pixels"},
     IxMeanSmoothing5x5},
    {"mean7x7",
     {"IxMeanSmoothing7x7", "filter mean7x7 IN OUT", "the mean of 7 x 7 pixels"},
     IxMeanSmoothing7x7},
    {"convolution3x3",
     {"IxArbitraryConvolution3x3", "filter convolution3x3 IN OUT --kernel=W,W...",
      "9 weights, row by row, divided by their sum"},
     Weighed{IxArbitraryConvolution3x3, 3}},
    {"convolution5x5",
     {"IxArbitraryConvolution5x5", "filter convolution5x5 IN OUT --kernel=W,W...",
      "25 weights, row by row, divided by their sum"},
     Weighed{IxArbitraryConvolution5x5, 5}},
    {"convolution7x7",
     {"IxArbitraryConvolution7x7", "filter convolution7x7 IN OUT --kernel=W,W...",
      "49 weights, row by row, divided by their sum"},
     Weighed{IxArbitraryConvolution7x7, 7}},
};

struct Options {
  std::string in, out;
  int size = 0;
  std::vector<int> kernel;
};

std::string CheckOdd(const std::string& text) {
  const char* const end = text.data() + text.size();
  int size = 0;
  const auto read = std::from_chars(text.data(), end, size);
  return read.ptr == end && size > 0 && size % 2 == 1
             ? ""
             : "the size must be odd and positive, not " + text;
}

void RunFilter(const Filter& filter, const Options& options) {
  GreyImage image;
  ReadImage(options.in, image);
  if (const auto* plain = std::get_if<Plain>(&filter.run)) (*plain)(&image, &image);
  if (const auto* sized = std::get_if<Sized>(&filter.run)) (*sized)(&image, &image, options.size);
  if (const auto* weighed = std::get_if<Weighed>(&filter.run)) {
    weighed->run(&image, &image, options.kernel.data());
  }
  WriteImage(options.out, image);
}

void AddFilters(Command app) {
  auto options = std::make_shared<Options>();
  const Command command =
      app.Add("filter", "Edges, sharpening, medians, smoothing and convolution");
  command.NeedsSubcommand();
  for (const Filter& filter : kFilters) {
    const Command named = command.Add(filter.name, filter.operation.summary);
    AddPictureToRead(named, "IN", options->in);
    AddPictureToWrite(named, "OUT", options->out);
    if (std::holds_alternative<Sized>(filter.run)) {
      named.AddOption("--size", options->size, "side of the window, odd")
          .Required()
          .Checked(CheckOdd);
    }
    if (const auto* weighed = std::get_if<Weighed>(&filter.run)) {
      named
          .AddOption("--kernel", options->kernel,
                     "whole numbers, row by row; --kernel=0,-1,0,-1,5,-1,0,-1,0 sharpens")
          .Required()
          .SeparatedBy(',')
          .Values(weighed->size * weighed->size);
    }
    named.Runs([&filter, options] { RunFilter(filter, *options); });
  }
}

const auto kOperations = [] {
  std::array<Operation, std::size(kFilters)> operations;
  std::transform(std::begin(kFilters), std::end(kFilters), operations.begin(),
                 [](const Filter& filter) { return filter.operation; });
  return operations;
}();

}  // namespace

const Family kNeighbourhoodFilters = {"filters", AddFilters, kOperations};

}  // namespace quillon::app
