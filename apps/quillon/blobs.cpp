// quillon blobs: finds, measures and selects the connected groups of pixels of a picture.
#include <algorithm>
#include <charconv>
#include <climits>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/report/report.h"
#include "kit/search/blob_search.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"CreateRLERegion", "blobs IMAGE", "a region object with its blobs"},
    {"DestroyRLERegion", "blobs IMAGE", "releases it"},
    {"IxPointToRegion", "blobs IMAGE --polygon X,Y X,Y X,Y ...", "the region inside a polygon"},
    {"IxImgAssignToRegion", "", "the image over which a region is displayed"},
    {"IxGetRegDisplay", "", "a bitmap of the region over its image"},
    {"IxGrayBlobLabel", "blobs IMAGE --band LOW HIGH", "connected pixels of a band of grey"},
    {"IxBinaryFillUp", "blobs IMAGE --fill-holes", "fills the holes of a binary picture"},
    {"IxGetBlobCount", "blobs IMAGE", "how many blobs there are"},
    {"IxGetnBlobArea", "blobs IMAGE", "pixels of each blob"},
    {"IxGetnBlobCenter", "blobs IMAGE", "mean column and row of each blob"},
    {"IxGetnBlobBound", "blobs IMAGE", "upright box of each blob"},
    {"IxGetBlobMinRect", "blobs IMAGE", "turned rectangle of least area of each blob"},
    {"IxGetnBlobGrayMean", "blobs IMAGE", "mean grey of each blob"},
    {"IxGetnBlobColorMean", "blobs IMAGE (a colour one)", "mean colour of each blob"},
    {"IxGetnRegionGrayMean", "blobs IMAGE", "mean grey of the region"},
    {"IxGetnRegionColorMean", "blobs IMAGE (a colour one)", "mean colour of the region"},
    {"IxComputeAllBlobFeature", "blobs IMAGE", "one record of features a blob, all selected"},
    {"IxSelectBlobArea", "blobs IMAGE --min-area N --max-area N", "keeps blobs by area"},
    {"IxSelectBlobWidth", "blobs IMAGE --min-width N --max-width N",
     "keeps blobs by the turned rectangle's width"},
    {"IxSelectBlobHeight", "blobs IMAGE --min-height N --max-height N",
     "keeps blobs by the turned rectangle's height"},
    {"IxLocateBlobCenter", "blobs IMAGE --center-x MIN MAX --center-y MIN MAX",
     "keeps blobs by their centre"},
    {"IxReSelectBlob", "", "selects all blobs again"},
    {"IxGetSelectBlobCount", "blobs IMAGE", "how many blobs are kept"},
    {"IxGetBlobList", "blobs IMAGE", "the records of the blobs that are kept"},
};

struct Options {
  std::string image;
  std::vector<int> band;
  bool otsu = false;  // the default, for those who want to say so
  bool dark = false;
  bool fillHoles = false;
  std::vector<std::string> polygon;
  Bounds area, width, height;
  std::vector<int> centreX, centreY;
  std::string binary;
  Output output;
};

// ---- what to label ------------------------------------------------------------------------------

Band ChooseBand(const Options& options, const GreyImage& image) {
  if (!options.band.empty()) {
    return {std::min(options.band[0], options.band[1]), std::max(options.band[0], options.band[1])};
  }
  const int level = OtsuLevel(image);
  return options.dark ? Band{0, level} : Band{level + 1, 255};
}

// ---- the region of interest ---------------------------------------------------------------------

void ParsePoint(const std::string& text, std::vector<int>& points) {
  const char* const end = text.data() + text.size();
  int x = 0, y = 0;
  const auto first = std::from_chars(text.data(), end, x);
  const bool comma = first.ec == std::errc{} && first.ptr != end && *first.ptr == ',';
  const auto second = std::from_chars(comma ? first.ptr + 1 : end, end, y);
  if (!comma || second.ec != std::errc{} || second.ptr != end || std::abs(x) > kFarthest ||
      std::abs(y) > kFarthest) {
    RefuseUsage("--polygon", "'" + text +
                                 "' is not a point X,Y of whole numbers "
                                 "from -32767 to 32767");
  }
  points.insert(points.end(), {x, y});
}

void CheckLength(const std::vector<int>& points) {
  const int64_t length = BoundaryLength(points);
  if (length <= kLongestBoundary) return;
  RefuseUsage("--polygon", "a boundary of " + std::to_string(length) + " steps is longer than " +
                               std::to_string(kLongestBoundary));
}

std::vector<int> RegionPoints(const Options& options, const GreyImage& image) {
  if (options.polygon.empty()) return WholePicture(image);
  std::vector<int> points;
  for (const std::string& text : options.polygon) ParsePoint(text, points);
  CheckLength(points);
  TurnClockwise(points);
  return points;
}

BlobSelection Selection(const Options& options) {
  const auto centre = [](const std::vector<int>& given) {
    return given.empty() ? Bounds{} : Bounds{given[0], given[1]};
  };
  return {options.area, options.width, options.height, centre(options.centreX),
          centre(options.centreY)};
}

// ---- findings and report ------------------------------------------------------------------------

struct Pictures {
  GreyImage grey;
  ColourImage colour;  // empty for a grey file
};

std::vector<Fact> Facts(const Options& options, const Pictures& pictures, Band band,
                        RLERegion* region, double share, size_t found,
                        const std::vector<BlobFeature>& blobs) {
  // The library's means divide by the whole region, what lies outside the picture included.
  const auto regionMean = [&](double mean) { return share > 0 ? Cell{mean / share} : Cell{}; };
  int64_t area = 0;
  for (const BlobFeature& blob : blobs) area += blob.area;
  std::vector<Fact> facts = {
      {"image", "Picture", options.image},
      {"width", "Width", int64_t{pictures.grey.width}},
      {"height", "Height", int64_t{pictures.grey.height}},
      {"low", "Lowest grey", int64_t{band.low}},
      {"high", "Highest grey", int64_t{band.high}},
      {"found", "Blobs found", static_cast<int64_t>(found)},
      {"selected", "Blobs kept", static_cast<int64_t>(blobs.size())},
      {"area", "Area kept", area},
      {"mean", "Mean of region", regionMean(IxGetnRegionGrayMean(&pictures.grey, region))},
  };
  if (pictures.colour.bits) {
    double mean[3] = {};
    IxGetnRegionColorMean(&pictures.colour, region, mean);
    facts.insert(facts.end(), {{"red", "", regionMean(mean[0])},
                               {"green", "", regionMean(mean[1])},
                               {"blue", "", regionMean(mean[2])}});
  }
  return facts;
}

Findings Measure(const Pictures& pictures, RLERegion* region, const std::vector<BlobFeature>& blobs,
                 const std::vector<int>& numbers) {
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

  for (size_t i = 0; i < blobs.size(); ++i) {
    const BlobFeature& blob = blobs[i];
    int bound[4] = {};
    IxGetnBlobBound(region, numbers[i], bound);
    const auto [left, right, top, bottom] = bound;
    std::vector<Cell> row = {
        int64_t{numbers[i]}, int64_t{blob.area},
        blob.centreX,        blob.centreY,
        Single(blob.width),  Single(blob.height),
        Single(blob.angle),  IxGetnBlobGrayMean(&pictures.grey, region, numbers[i]),
        int64_t{left},       int64_t{top},
        int64_t{right},      int64_t{bottom}};
    if (pictures.colour.bits) {
      double mean[3] = {};
      IxGetnBlobColorMean(&pictures.colour, region, numbers[i], mean);
      row.insert(row.end(), std::begin(mean), std::end(mean));
    }
    for (const float corner : blob.corners) row.push_back(Single(corner));
    findings.rows.push_back(std::move(row));
  }
  return findings;
}

Report Draw(const Options& options, const Pictures& pictures, const std::vector<int>& regionPoints,
            RLERegion* region, const std::vector<BlobFeature>& blobs,
            const std::vector<int>& numbers) {
  constexpr size_t kMostNumbers = 150;  // more of them hide the picture, until they are asked for
  enum { kBox, kRectangle, kCentre, kNumber, kRegion };
  Report report{.title = "Blobs of " + std::filesystem::path(options.image).filename().string(),
                .layers = {{"Outline box", Tone::kCyan},
                           {"Minimum rectangle", Tone::kAmber},
                           {"Centre", Tone::kMagenta},
                           {"Number", Tone::kWhite, blobs.size() <= kMostNumbers}}};
  Picture& picture = report.pictures.emplace_back(
      pictures.colour.bits ? Picture("", pictures.colour) : Picture("", pictures.grey));
  if (!options.polygon.empty()) {
    report.layers.push_back({"Region", Tone::kGreen});
    std::vector<Point> outline;
    for (size_t i = 0; i < regionPoints.size(); i += 2) {
      outline.push_back(
          {static_cast<double>(regionPoints[i]), static_cast<double>(regionPoints[i + 1])});
    }
    picture.Polygon({kRegion}, outline);
  }
  for (size_t i = 0; i < blobs.size(); ++i) {
    const BlobFeature& blob = blobs[i];
    const int row = static_cast<int>(i);
    int bound[4] = {};
    IxGetnBlobBound(region, numbers[i], bound);
    const auto [left, right, top, bottom] = bound;
    Point corners[4];
    for (size_t c = 0; c < 4; ++c) corners[c] = {blob.corners[2 * c], blob.corners[2 * c + 1]};
    picture.Box({kBox, row}, left, top, right, bottom);
    picture.Polygon({kRectangle, row}, corners);
    picture.Cross({kCentre, row}, {blob.centreX, blob.centreY});
    picture.Label({kNumber, row}, {left - 0.5, top - 1.0}, std::to_string(numbers[i]));
  }
  return report;
}

// White where the region's picture was labelled from, for a look at what the band and the filling
// did.
void WriteBinary(const std::string& path, const GreyImage& image, GreyImage& binary) {
  GreyImage shown;
  shown.Create(image.width, image.height);
  if (!shown.bits) throw Failure("no memory for a binary picture");
  for (int y = 0; y < shown.height; ++y) {
    for (int x = 0; x < shown.width; ++x) shown.rows[y][x] = binary.rows[y][x] ? 255 : 0;
  }
  WriteImage(path, shown);
}

void Run(const Options& options) {
  Pictures pictures;
  ReadImage(options.image, pictures.grey, pictures.colour);
  const std::vector<int> points = RegionPoints(options, pictures.grey);
  const Band band = ChooseBand(options, pictures.grey);
  Region region;
  GreyImage binary;
  MakeBinary(pictures.grey, band, binary);
  if (options.fillHoles) FillHoles(region, binary, 1);
  if (!options.binary.empty()) WriteBinary(options.binary, pictures.grey, binary);

  IxPointToRegion(region, points.data(), static_cast<int>(points.size() / 2));
  const double share = LabelAll(region, pictures.grey, binary);
  IxComputeAllBlobFeature(region);
  const std::vector<BlobFeature> all = SelectedBlobs(region);
  SelectBlobs(Selection(options), region);
  const std::vector<BlobFeature> blobs = SelectedBlobs(region);
  const std::vector<int> numbers = NumbersOf(blobs, all);

  Findings findings = Measure(pictures, region, blobs, numbers);
  findings.facts = Facts(options, pictures, band, region, share, all.size(), blobs);
  Print(options.output, findings);
  if (!options.output.WantsPictures()) return;
  WritePictures(options.output, Draw(options, pictures, points, region, blobs, numbers), findings);
}

// ---- the command --------------------------------------------------------------------------------

void AddBounds(Command command, const std::string& what, const std::string& text, Bounds& bounds) {
  command.AddOption("--min-" + what, bounds.min, "keep " + text + " of at least this")
      .ShownAs("N")
      .Within(0, INT_MAX);
  command.AddOption("--max-" + what, bounds.max, "keep " + text + " of at most this")
      .ShownAs("N")
      .Within(0, INT_MAX);
}

void CheckOrder(const std::string& what, const Bounds& bounds) {
  if (bounds.min <= bounds.max) return;
  RefuseUsage("--min-" + what, "Value " + std::to_string(bounds.min) + " is above --max-" + what +
                                   " " + std::to_string(bounds.max));
}

void AddBlobs(Command app) {
  auto options = std::make_shared<Options>();
  const Command command =
      app.Add("blobs", "Count, measure and select the connected groups of bright or dark pixels");
  AddPictureToRead(command, "IMAGE", options->image);
  const Option band =
      command.AddOption("--band", options->band, "pixels of grey LOW to HIGH, both included")
          .Values(2)
          .ShownAs("LOW HIGH")
          .Within(0, 255);
  command
      .AddFlag("--otsu", options->otsu,
               "pixels above the level that separates dark and bright best (default)")
      .Excludes(band);
  command.AddFlag("--dark", options->dark, "pixels at or below that level instead").Excludes(band);
  command.AddFlag("--fill-holes", options->fillHoles, "count what blobs enclose as theirs");
  constexpr int kMostPoints = 100'000;
  command.AddOption("--polygon", options->polygon, "only inside this polygon, boundary included")
      .Values(3, kMostPoints)
      .ShownAs("X,Y X,Y X,Y ...");
  AddBounds(command, "area", "blobs of an area", options->area);
  AddBounds(command, "width", "blobs of a turned rectangle with a width", options->width);
  AddBounds(command, "height", "blobs of a turned rectangle with a height", options->height);
  command.AddOption("--center-x", options->centreX, "keep blobs whose mean column is within")
      .Values(2)
      .ShownAs("MIN MAX");
  command.AddOption("--center-y", options->centreY, "keep blobs whose mean row is within")
      .Values(2)
      .ShownAs("MIN MAX");
  command
      .AddFileToWrite("--binary", options->binary, "write what was labelled in white (.png, .bmp)",
                      CheckPictureName)
      .ShownAs("FILE");
  AddOutputOptions(command, options->output);
  command.Runs([options] {
    CheckOrder("area", options->area);
    CheckOrder("width", options->width);
    CheckOrder("height", options->height);
    Run(*options);
  });
}

}  // namespace

const Family kBlobs = {"blobs", AddBlobs, kOperations};

}  // namespace quillon::app
