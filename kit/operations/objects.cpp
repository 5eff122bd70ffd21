// What finds things: blobs, template matching, edge-based matching; and filling holes.

#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/operations/operation.h"
#include "kit/search/blob_search.h"
#include "kit/search/edge_search.h"
#include "kit/search/pattern_search.h"

namespace quillon::kit {
namespace {

constexpr std::array<Kind, 2> kPicture = {Kind::kPicture, Kind::kNone};
constexpr std::array<Kind, 2> kColour = {Kind::kColour, Kind::kNone};

// ---- blobs --------------------------------------------------------------------------------------

struct RegionTool : Tool {
  Region region;
  GreyImage binary;
};

std::unique_ptr<Tool> MakeRegion(const Values&, const std::string&) {
  return std::make_unique<RegionTool>();
}

Bounds BoundsOf(const Values& values, const char* name) {
  if (!values.Has(name)) return {};
  const auto range = values.List<int>(name);
  return {range[0], range[1]};
}

Thing MakeThing(const GreyImage& image, RLERegion* region, const BlobFeature& blob, int number) {
  int bound[4] = {};
  IxGetnBlobBound(region, number, bound);
  Thing thing = {.area = static_cast<double>(blob.area),
                 .x = blob.centreX,
                 .y = blob.centreY,
                 .width = blob.width,
                 .height = blob.height,
                 .angle = blob.angle,
                 .mean = IxGetnBlobGrayMean(&image, region, number),
                 .left = bound[0],
                 .top = bound[2],
                 .right = bound[1],
                 .bottom = bound[3]};
  std::copy(std::begin(blob.corners), std::end(blob.corners), thing.corners.begin());
  return thing;
}

void FindBlobs(const Call& call) {
  auto& [region, binary] = static_cast<RegionTool&>(*call.tool);
  const GreyImage& image = call.a.picture;
  const auto band = call.values.List<int>("band");
  MakeBinary(image, {band[0], band[1]}, binary);
  if (call.values.Flag("fill_holes")) FillHoles(region, binary, 1);
  std::vector<int> points = WholePicture(image);
  if (call.values.Has("region")) {
    points.clear();
    for (const auto& point : call.values.List<std::array<int, 2>>("region")) {
      points.insert(points.end(), point.begin(), point.end());
    }
    TurnClockwise(points);
  }
  IxPointToRegion(region, points.data(), static_cast<int>(points.size() / 2));
  LabelAll(region, image, binary);
  // Where nothing was labelled, the features of the image before would stay.
  if (!IxComputeAllBlobFeature(region)) return;
  const std::vector<BlobFeature> all = SelectedBlobs(region);
  SelectBlobs(
      {BoundsOf(call.values, "area"), BoundsOf(call.values, "width"),
       BoundsOf(call.values, "height"), BoundsOf(call.values, "x"), BoundsOf(call.values, "y")},
      region);
  const std::vector<BlobFeature> blobs = SelectedBlobs(region);
  const std::vector<int> numbers = NumbersOf(blobs, all);
  for (size_t i = 0; i < blobs.size(); ++i) {
    call.result.things.push_back(MakeThing(image, region, blobs[i], numbers[i]));
  }
}

void FillUp(const Call& call) {
  call.result.picture.CopyFrom(&call.a.picture);
  if (!call.result.picture.bits) return;
  FillHoles(static_cast<RegionTool&>(*call.tool).region, call.result.picture,
            call.values.Whole("value"));
}

// ---- template matching --------------------------------------------------------------------------

struct Template : Tool {
  PatternTool tool;
  int width = 0, height = 0;
};

template <class Image>
std::unique_ptr<Tool> TeachTemplate(const Values& values, const std::string& folder) {
  const std::string path = InFolder(folder, values.Text("template"));
  Image pattern;
  ReadImage(path, pattern);
  auto taught = std::make_unique<Template>();
  taught->width = pattern.width;
  taught->height = pattern.height;
  taught->tool = TeachPattern(path, pattern, values.Flag("mask"));
  std::optional<int> level;
  if (values.Has("level")) level = values.Whole("level");
  ChooseStartLevel(path, values.List<double>("scale")[0], level, taught->tool.get());
  return taught;
}

// The turned rectangle of a template whose centre is at (x, y).
std::array<double, 8> Corners(Point centre, double width, double height, double degrees) {
  const Pose pose = {centre.x, centre.y, degrees};
  std::array<double, 8> corners;
  constexpr double kSides[4][2] = {{-0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}, {-0.5, 0.5}};
  for (size_t i = 0; i < 4; ++i) {
    const Point corner = pose.At(kSides[i][0] * width, kSides[i][1] * height);
    corners[2 * i] = corner.x;
    corners[2 * i + 1] = corner.y;
  }
  return corners;
}

template <class Image>
void Match(const Call& call, const Image& image) {
  const auto& taught = static_cast<const Template&>(*call.tool);
  PatternQuery query = {.minScore = call.values.Number("min_score"),
                        .angle = {},
                        .scale = call.values.List<double>("scale"),
                        .most = call.values.Whole("max")};
  if (call.values.Has("angle")) query.angle = call.values.List<double>("angle");
  for (const NccResult& match : FindPattern(image, taught.tool.get(), query)) {
    const double width = taught.width * match.scale, height = taught.height * match.scale;
    call.result.things.push_back(
        {.x = match.x,
         .y = match.y,
         .width = width,
         .height = height,
         .angle = match.angle,
         .scale = match.scale,
         .score = match.score,
         .corners = Corners({match.x, match.y}, width, height, match.angle)});
  }
}

const std::vector<Argument> kMatchArguments = {
    File("template", "the picture to find"),
    Range("angle", -360, 360, "search these angles, in degrees clockwise; without: as it lies")
        .Optional(),
    Range("scale", 0.1, 10, "search these sizes, relative to the template").Or("[1, 1]"),
    Number("min_score", 0, 1, "correlation that is a match").Or("0.7"),
    Whole("max", 1, 500, "at most this many, the best").Or("50"),
    Whole("level", 0, 6, "start the search at this level of the pyramid: 0 is slow and sure")
        .Optional(),
    Flag("mask", "black pixels of the template do not count").Or("false"),
};

// ---- edge-based matching ------------------------------------------------------------------------

struct Edges : Tool {
  EdgeTool tool;
};

std::unique_ptr<Tool> TeachPart(const Values& values, const std::string& folder) {
  const std::string path = InFolder(folder, values.Text("template"));
  GreyImage pattern;
  ReadImage(path, pattern);
  const auto strength = values.List<double>("edges");
  auto edges = std::make_unique<Edges>();
  edges->tool = TeachEdges(path, pattern, strength[0], strength[1]);
  return edges;
}

void Locate(const Call& call) {
  const GeoMatchTool& tool = *static_cast<const Edges&>(*call.tool).tool;
  EdgeQuery query = {call.values.Number("min_score"), call.values.Number("greediness"), {}, {}};
  if (call.values.Has("angle")) {
    const auto angle = call.values.List<double>("angle");
    query.lowest = angle[0];
    query.highest = angle[1];
  }
  const EdgeMatch match = FindEdges(call.a.picture, tool, query);
  if (!match.found) return;
  const GeoModelLevel& model = *tool.model;
  const double width = model.width, height = model.height;
  call.result.things.push_back(
      {.x = match.pose.x,
       .y = match.pose.y,
       .width = width,
       .height = height,
       .angle = match.pose.degrees,
       .scale = 1,
       .score = match.score,
       .corners = Corners(CentreOf(model, match.pose), width, height, match.pose.degrees)});
}

}  // namespace

std::vector<RecipeOperation> ObjectOperations() {
  constexpr double kMost = 2'000'000'000;
  return {
      {"fill-holes",
       "blobs",
       "what pixels of a value enclose gets that value",
       kPicture,
       Kind::kPicture,
       {Whole("value", 1, 255, "of the pixels that enclose").Or("255")},
       FillUp,
       MakeRegion},
      {"blobs",
       "blobs",
       "connected groups of pixels of a band of grey, diagonals included",
       kPicture,
       Kind::kBlobs,
       {WholeRange("band", 0, 255, "grey values of their pixels, both included").Or("[1, 255]"),
        Flag("fill_holes", "count what blobs enclose as theirs").Or("false"),
        Points("region", "only inside this polygon, boundary included").Optional(),
        WholeRange("area", 0, kMost, "keep blobs of these areas").Optional(),
        WholeRange("width", 0, kMost, "keep blobs of these widths of the turned rectangle")
            .Optional(),
        WholeRange("height", 0, kMost, "keep blobs of these heights of the turned rectangle")
            .Optional(),
        WholeRange("x", -kFarthest, kFarthest, "keep blobs whose mean column is within").Optional(),
        WholeRange("y", -kFarthest, kFarthest, "keep blobs whose mean row is within").Optional()},
       FindBlobs,
       MakeRegion},
      {"match", "matching", "places of a template by its grey values, the best first", kPicture,
       Kind::kMatches, kMatchArguments, [](const Call& call) { Match(call, call.a.picture); },
       TeachTemplate<GreyImage>},
      {"match-color", "matching", "places of a template by its colours, the best first", kColour,
       Kind::kMatches, kMatchArguments, [](const Call& call) { Match(call, call.a.colour); },
       TeachTemplate<ColourImage>},
      {"locate",
       "matching",
       "the best place of a part by its edges, if there is one",
       kPicture,
       Kind::kMatches,
       {File("template", "a picture of the part"),
        Range("angle", -360, 360, "search these angles, in degrees clockwise; without: as it lies")
            .Optional(),
        Number("min_score", 0, 1, "agreement of the edges that is a match").Or("0.5"),
        Number("greediness", 0, 0.99, "how early a place is given up: 0.99 is fastest").Or("0.7"),
        Range("edges", 0, 255, "limits of edge strength, 255 for the strongest").Or("[30, 80]")},
       Locate,
       TeachPart},
  };
}

}  // namespace quillon::kit
