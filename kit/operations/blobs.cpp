// Blobs, and filling holes.
#include "kit/images/pixels.h"
#include "kit/search/blob_search.h"
#include "kit/search/blob_shape.h"

#include <filesystem>

#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// ---- filling holes ------------------------------------------------------------------------------

struct RegionTool : Tool {
  Region region;
};

std::unique_ptr<Tool> MakeRegion(const Values&, const Sources&) {
  return std::make_unique<RegionTool>();
}

void FillUp(const Call& call) {
  CopyPicture(*call.a.grey, call.result.picture);
  FillHoles(static_cast<RegionTool&>(*call.tool).region, call.result.picture,
            call.values.Whole("value"));
}

// ---- blobs --------------------------------------------------------------------------------------

// The query of an operation that looks for blobs; `polygons` says whether it takes a polygon.
BlobQuery QueryOf(const Values& values, bool polygons) {
  BlobQuery query;
  if (values.Has("band")) {
    const auto band = values.List<int>("band");
    query.band = {band[0], band[1]};
  }
  query.dark = values.Flag("dark");
  query.fillHoles = values.Flag("fill_holes");
  if (polygons && values.Has("polygon")) {
    for (const auto& point : values.List<std::array<int, 2>>("polygon")) {
      query.polygon.insert(query.polygon.end(), point.begin(), point.end());
    }
  }
  const auto between = [&](const char* least, const char* most) {
    Bounds bounds;
    if (values.Has(least)) bounds.min = values.Whole(least);
    if (values.Has(most)) bounds.max = values.Whole(most);
    return bounds;
  };
  const auto within = [&](const char* name) {
    if (!values.Has(name)) return Bounds{};
    const auto range = values.List<int>(name);
    return Bounds{range[0], range[1]};
  };
  query.selection = {between("min_area", "max_area"), between("min_width", "max_width"),
                     between("min_height", "max_height"), within("center_x"), within("center_y")};
  return query;
}

struct BlobTool : Tool {
  Findings Tell(const Searched& searched) const override;
  Report Page(const std::string& picture) const override;
  void Draw(const Searched& searched, int firstRow, Report& report) const override;
  void Aside(GreyImage& picture) const override;

  std::vector<Fact> Facts(const Searched& searched) const;

  BlobFinder finder;
  std::vector<FoundBlob> blobs;  // of the last search

 private:
  enum Layers { kBox, kRectangle, kCentre, kNumber };
};

std::unique_ptr<Tool> MakeFinder(const Values&, const Sources&) {
  return std::make_unique<BlobTool>();
}

Thing ThingOf(const FoundBlob& blob) {
  const BlobFeature& feature = blob.feature;
  Thing thing = {.area = double(feature.area),
                 .x = feature.centreX,
                 .y = feature.centreY,
                 .width = feature.width,
                 .height = feature.height,
                 .angle = feature.angle,
                 .mean = blob.mean,
                 .left = blob.left,
                 .top = blob.top,
                 .right = blob.right,
                 .bottom = blob.bottom,
                 .number = blob.number};
  std::copy(std::begin(feature.corners), std::end(feature.corners), thing.corners.begin());
  return thing;
}

// Refuses limits of the centre that lie wholly outside the picture: they would keep no blob.
void RequireLines(const Values& values, const char* name, const char* lines, int count) {
  if (!values.Has(name)) return;
  const auto range = values.List<int>(name);
  if (range[1] >= 0 && range[0] < count) return;
  throw Failure(std::string("'") + name + "' is " + std::to_string(range[0]) + " to " +
                std::to_string(range[1]) + ", the picture has " + lines + " 0 to " +
                std::to_string(count - 1));
}

void FindBlobs(const Call& call) {
  RequireLines(call.values, "center_x", "columns", call.a.grey->width);
  RequireLines(call.values, "center_y", "rows", call.a.grey->height);
  auto& tool = static_cast<BlobTool&>(*call.tool);
  tool.blobs = tool.finder.Find(*call.a.grey, QueryOf(call.values, true));
  for (const FoundBlob& blob : tool.blobs) call.result.things.push_back(ThingOf(blob));
}

bool HasColour(const Searched& searched) {
  return searched.picture.colour && searched.picture.colour->bits;
}

std::vector<Fact> BlobTool::Facts(const Searched& searched) const {
  const GreyImage& grey = *searched.picture.grey;
  const double share = finder.ShareInPicture();
  // The library's means divide by the whole region, what lies outside the picture included.
  const auto regionMean = [&](double mean) { return share > 0 ? Cell{mean / share} : Cell{}; };
  int64_t area = 0;
  for (const FoundBlob& blob : blobs) area += blob.feature.area;
  std::vector<Fact> facts = {
      {"image", "Picture", searched.name},
      {"width", "Width", int64_t{grey.width}},
      {"height", "Height", int64_t{grey.height}},
      {"low", "Lowest grey", int64_t{finder.UsedBand().low}},
      {"high", "Highest grey", int64_t{finder.UsedBand().high}},
      {"found", "Blobs found", static_cast<int64_t>(finder.FoundInAll())},
      {"selected", "Blobs kept", static_cast<int64_t>(blobs.size())},
      {"area", "Area kept", area},
      {"mean", "Mean of region", regionMean(IxGetnRegionGrayMean(&grey, finder.Labelled()))},
  };
  if (HasColour(searched)) {
    double mean[3] = {};
    IxGetnRegionColorMean(searched.picture.colour, finder.Labelled(), mean);
    facts.insert(facts.end(), {{"red", "", regionMean(mean[0])},
                               {"green", "", regionMean(mean[1])},
                               {"blue", "", regionMean(mean[2])}});
  }
  return facts;
}

Findings BlobTool::Tell(const Searched& searched) const {
  Findings findings{.key = NameOf(searched.kind), .facts = Facts(searched)};
  findings.columns = {{"n", "n"},         {"area", "area"},   {"x", "x"},
                      {"y", "y"},         {"width", "width"}, {"height", "height"},
                      {"angle", "angle"}, {"mean", "mean", 1}};
  for (const char* side : {"left", "top", "right", "bottom"}) {
    findings.columns.push_back({side, side, 0, Shown::kInText});
  }
  if (HasColour(searched)) {
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
    if (HasColour(searched)) {
      double mean[3] = {};
      IxGetnBlobColorMean(searched.picture.colour, finder.Labelled(), blob.number, mean);
      row.insert(row.end(), std::begin(mean), std::end(mean));
    }
    for (const float corner : feature.corners) row.push_back(Single(corner));
    findings.rows.push_back(std::move(row));
  }
  return findings;
}

Report BlobTool::Page(const std::string& picture) const {
  constexpr size_t kMostNumbers = 150;  // more would hide the picture: off at first
  return {.title = "Blobs of " + std::filesystem::path(picture).filename().string(),
          .layers = {{"Outline box", Tone::kCyan},
                     {"Minimum rectangle", Tone::kAmber},
                     {"Centre", Tone::kMagenta},
                     {"Number", Tone::kWhite, blobs.size() <= kMostNumbers}}};
}

void BlobTool::Draw(const Searched& searched, int firstRow, Report& report) const {
  Picture& picture = AddPicture("", searched.picture, report);
  for (size_t i = 0; i < searched.things.size(); ++i) {
    const Thing& blob = searched.things[i];
    const int row = firstRow + static_cast<int>(i);
    if (!IsThere(blob)) continue;
    picture.Box({kBox, row}, blob.left, blob.top, blob.right, blob.bottom);
    picture.Polygon({kRectangle, row}, CornersOf(blob));
    picture.Cross({kCentre, row}, {blob.x, blob.y});
    picture.Label({kNumber, row}, {blob.left - 0.5, blob.top - 1.0}, std::to_string(blob.number));
  }
}

// White where the picture was labelled, for a look at what the band and the filling did.
void BlobTool::Aside(GreyImage& picture) const {
  const GreyImage& binary = finder.Binary();
  picture.Create(binary.width - 1, binary.height);
  if (!picture.bits) throw OutOfMemory("a binary picture");
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) picture.rows[y][x] = binary.rows[y][x] ? 255 : 0;
  }
}

// ---- shapes -------------------------------------------------------------------------------------

struct ShapeTool : Tool {
  explicit ShapeTool(BlobQuery query_) : query(std::move(query_)) {}
  BlobQuery query;
  BlobFinder finder;
};

std::unique_ptr<Tool> MakeShapes(const Values& values, const Sources&) {
  return std::make_unique<ShapeTool>(QueryOf(values, false));
}

void FindShapes(const Call& call) {
  auto& tool = static_cast<ShapeTool&>(*call.tool);
  const std::vector<FoundBlob> blobs = tool.finder.Find(*call.a.grey, tool.query);
  if (blobs.empty()) return;
  const std::vector<BlobShape> shapes = ShapesOf(*call.a.grey, tool.finder.Binary(), blobs);
  for (size_t i = 0; i < blobs.size(); ++i) {
    const BlobShape& shape = shapes[i];
    Thing thing = ThingOf(blobs[i]);
    thing.x = shape.x;
    thing.y = shape.y;
    thing.mean = shape.mean;
    thing.median = shape.median;
    thing.deviation = shape.deviation;
    thing.contrast = shape.contrast;
    thing.hull = shape.hull;
    thing.convexity = shape.convexity;
    thing.circularity = shape.circularity;
    thing.elongation = shape.elongation;
    thing.axis = shape.axis;
    thing.mxx = shape.mxx;
    thing.mxy = shape.mxy;
    thing.myy = shape.myy;
    call.result.things.push_back(thing);
  }
}

Argument Least(const char* name, const char* summary) {
  return Whole(name, 0, INT_MAX, summary).Optional();
}

// Which pixels make blobs, and which blobs are kept.
std::vector<Argument> BlobArguments(bool polygons) {
  std::vector<Argument> arguments = {
      WholeRange("band", 0, 255,
                 "grey values of their pixels, both included; without: above the level that "
                 "separates dark and bright best")
          .Optional(),
      Flag("dark", "the pixels at or below that level instead").Or("false").Excludes("band"),
      Flag("fill_holes", "count what blobs enclose as theirs").Or("false"),
      Least("min_area", "keep blobs of an area of at least this").In("pixels"),
      Least("max_area", "keep blobs of an area of at most this").In("pixels"),
      Least("min_width", "keep blobs of a turned rectangle with a width of at least this")
          .In("pixels"),
      Least("max_width", "keep blobs of a turned rectangle with a width of at most this")
          .In("pixels"),
      Least("min_height", "keep blobs of a turned rectangle with a height of at least this")
          .In("pixels"),
      Least("max_height", "keep blobs of a turned rectangle with a height of at most this")
          .In("pixels"),
      WholeRange("center_x", -kFarthest, kFarthest, "keep blobs whose mean column is within")
          .Optional(),
      WholeRange("center_y", -kFarthest, kFarthest, "keep blobs whose mean row is within")
          .Optional()};
  if (polygons) {
    constexpr std::ptrdiff_t kBeforeSelection = 3;
    arguments.insert(arguments.begin() + kBeforeSelection,
                     Points("polygon", "only inside this polygon, boundary included").Optional());
  }
  return arguments;
}

}  // namespace

std::vector<Operation> BlobOperations() {
  constexpr const char* kFamily = "blobs";
  return {
      {.name = "fill-holes",
       .family = kFamily,
       .summary = "what pixels of a value enclose gets that value",
       .arguments = {Whole("value", 1, 255, "of the pixels that enclose").Or("255")},
       .exports = {{"IxBinaryFillUp"}},
       .run = FillUp,
       .prepare = MakeRegion},
      {.name = "blobs",
       .family = kFamily,
       .summary = "connected groups of bright or dark pixels, diagonals included",
       .output = Kind::kBlobs,
       .arguments = BlobArguments(true),
       .exports = {{"CreateRLERegion", "a region object with its blobs"},
                   {"DestroyRLERegion", "releases it"},
                   {"IxPointToRegion", "the region inside a polygon"},
                   {"IxGrayBlobLabel", "connected pixels of a band of grey"},
                   {"IxGetBlobCount", "how many blobs there are"},
                   {"IxGetnBlobArea", "pixels of each blob"},
                   {"IxGetnBlobBound", "upright box of each blob"},
                   {"IxGetnBlobGrayMean", "mean grey of each blob"},
                   {"IxGetnRegionGrayMean", "mean grey of the region"},
                   {"IxComputeAllBlobFeature", "one record of features a blob, all selected"},
                   {"IxSelectBlobArea", "keeps blobs by area"},
                   {"IxSelectBlobWidth", "keeps blobs by the turned rectangle's width"},
                   {"IxSelectBlobHeight", "keeps blobs by the turned rectangle's height"},
                   {"IxLocateBlobCenter", "keeps blobs by their centre"},
                   {"IxGetSelectBlobCount", "how many blobs are kept"},
                   {"IxGetBlobList", "the records of the blobs that are kept"}},
       .run = FindBlobs,
       .prepare = MakeFinder,
       .aside = {"--binary", "write what was labelled in white (.png, .bmp)"}},
      {.name = "shapes",
       .family = kFamily,
       .summary = "the same groups with their moments, hull, contrast and spread of grey",
       .output = Kind::kShapes,
       .arguments = BlobArguments(false),
       .run = FindShapes,
       .prepare = MakeShapes},
  };
}

}  // namespace quillon::kit
