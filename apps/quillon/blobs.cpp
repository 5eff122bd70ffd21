// quillon blobs: finds, measures and selects the connected groups of pixels of a picture.
#include <filesystem>
#include <memory>

#include "arguments.h"
#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/operations/queries.h"
#include "kit/report/report.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string image, binary;
  Reading reading;
  Output output;
};

struct Pictures {
  GreyImage grey;
  ColourImage colour;  // empty for a grey file
};

std::vector<Fact> Facts(const Options& options, const Pictures& pictures, const BlobFinder& finder,
                        const std::vector<FoundBlob>& blobs) {
  const double share = finder.ShareInPicture();
  // The library's means divide by the whole region, what lies outside the picture included.
  const auto regionMean = [&](double mean) { return share > 0 ? Cell{mean / share} : Cell{}; };
  int64_t area = 0;
  for (const FoundBlob& blob : blobs) area += blob.feature.area;
  std::vector<Fact> facts = {
      {"image", "Picture", options.image},
      {"width", "Width", int64_t{pictures.grey.width}},
      {"height", "Height", int64_t{pictures.grey.height}},
      {"low", "Lowest grey", int64_t{finder.UsedBand().low}},
      {"high", "Highest grey", int64_t{finder.UsedBand().high}},
      {"found", "Blobs found", static_cast<int64_t>(finder.FoundInAll())},
      {"selected", "Blobs kept", static_cast<int64_t>(blobs.size())},
      {"area", "Area kept", area},
      {"mean", "Mean of region",
       regionMean(IxGetnRegionGrayMean(&pictures.grey, finder.Labelled()))},
  };
  if (pictures.colour.bits) {
    double mean[3] = {};
    IxGetnRegionColorMean(&pictures.colour, finder.Labelled(), mean);
    facts.insert(facts.end(), {{"red", "", regionMean(mean[0])},
                               {"green", "", regionMean(mean[1])},
                               {"blue", "", regionMean(mean[2])}});
  }
  return facts;
}

Findings Measure(const Pictures& pictures, RLERegion* region, const std::vector<FoundBlob>& blobs) {
  Findings findings{.key = "blobs"};
  findings.columns = {{"n", "n"},         {"area", "area"},   {"x", "x"},
                      {"y", "y"},         {"width", "width"}, {"height", "height"},
                      {"angle", "angle"}, {"mean", "mean", 1}};
  for (const char* side : {"left", "top", "right", "bottom"}) {
    findings.columns.push_back({side, side, 0, Shown::kInText});
  }
  if (pictures.colour.bits) {
    for (const char* channel : {"red", "green", "blue"}) {
      findings.columns.push_back({channel, channel, 1, Shown::kNowhere});
    }
  }
  for (const char* corner : {"x1", "y1", "x2", "y2", "x3", "y3", "x4", "y4"}) {
    findings.columns.push_back({corner, corner, 2, Shown::kNowhere});
  }

  for (const FoundBlob& blob : blobs) {
    const BlobFeature& feature = blob.feature;
    std::vector<Cell> row = {
        int64_t{blob.number},  int64_t{feature.area},  feature.centreX,       feature.centreY,
        Single(feature.width), Single(feature.height), Single(feature.angle), blob.mean,
        int64_t{blob.left},    int64_t{blob.top},      int64_t{blob.right},   int64_t{blob.bottom}};
    if (pictures.colour.bits) {
      double mean[3] = {};
      IxGetnBlobColorMean(&pictures.colour, region, blob.number, mean);
      row.insert(row.end(), std::begin(mean), std::end(mean));
    }
    for (const float corner : feature.corners) row.push_back(Single(corner));
    findings.rows.push_back(std::move(row));
  }
  return findings;
}

// With the outline of the region, where one was given.
Report Draw(const Options& options, const Pictures& pictures, const std::vector<int>& region,
            const std::vector<FoundBlob>& blobs) {
  constexpr size_t kMostNumbers = 150;  // more of them hide the picture, until they are asked for
  enum { kBox, kRectangle, kCentre, kNumber, kRegion };
  Report report{.title = "Blobs of " + std::filesystem::path(options.image).filename().string(),
                .layers = {{"Outline box", Tone::kCyan},
                           {"Minimum rectangle", Tone::kAmber},
                           {"Centre", Tone::kMagenta},
                           {"Number", Tone::kWhite, blobs.size() <= kMostNumbers}}};
  Picture& picture = report.pictures.emplace_back(
      pictures.colour.bits ? Picture("", pictures.colour) : Picture("", pictures.grey));
  if (!region.empty()) {
    report.layers.push_back({"Region", Tone::kGreen});
    std::vector<Point> outline;
    for (size_t i = 0; i < region.size(); i += 2) {
      outline.push_back({static_cast<double>(region[i]), static_cast<double>(region[i + 1])});
    }
    picture.Polygon({kRegion}, outline);
  }
  int row = 0;
  for (const FoundBlob& blob : blobs) {
    const BlobFeature& feature = blob.feature;
    Point corners[4];
    for (size_t c = 0; c < 4; ++c) {
      corners[c] = {feature.corners[2 * c], feature.corners[2 * c + 1]};
    }
    picture.Box({kBox, row}, blob.left, blob.top, blob.right, blob.bottom);
    picture.Polygon({kRectangle, row}, corners);
    picture.Cross({kCentre, row}, {feature.centreX, feature.centreY});
    picture.Label({kNumber, row}, {blob.left - 0.5, blob.top - 1.0}, std::to_string(blob.number));
    ++row;
  }
  return report;
}

// White where the region's picture was labelled from, for a look at what the band and the filling
// did.
void WriteBinary(const std::string& path, const GreyImage& binary) {
  GreyImage shown;
  shown.Create(binary.width - 1, binary.height);
  if (!shown.bits) throw Failure("no memory for a binary picture");
  for (int y = 0; y < shown.height; ++y) {
    for (int x = 0; x < shown.width; ++x) shown.rows[y][x] = binary.rows[y][x] ? 255 : 0;
  }
  WriteImage(path, shown);
}

void Run(const Options& options, const Values& values) {
  Pictures pictures;
  ReadImage(options.image, pictures.grey, pictures.colour, options.reading);
  BlobFinder finder;
  const std::vector<FoundBlob> blobs = finder.Find(pictures.grey, BlobQueryOf(values));
  if (!options.binary.empty()) WriteBinary(options.binary, finder.Binary());
  Findings findings = Measure(pictures, finder.Labelled(), blobs);
  findings.facts = Facts(options, pictures, finder, blobs);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  const bool isInside = values.Has("polygon");
  const std::vector<int> region = isInside ? finder.Outline() : std::vector<int>();
  WritePictures(options.output, Draw(options, pictures, region, blobs), findings);
}

}  // namespace

void AddBlobs(Command top) {
  const Operation& operation = *FindOperation("blobs");
  auto options = std::make_shared<Options>();
  const Command command = AddOperation(top, operation);
  AddPictureToRead(command, "IMAGE", options->image);
  AddReadingOptions(command, options->reading);
  const auto arguments = Arguments::Add(command, operation);
  command
      .AddFileToWrite("--binary", options->binary, "write what was labelled in white (.png, .bmp)",
                      CheckPictureName)
      .ShownAs("FILE");
  AddOutputOptions(command, options->output);
  command.Runs([options, arguments] { Run(*options, arguments->Read()); });
}

}  // namespace quillon::app
