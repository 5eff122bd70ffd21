// Parts found by their grey values, colours or edges, by the library and by the finder.
#include "kit/errors.h"
#include "kit/operations/operation.h"
#include "kit/operations/queries.h"

namespace quillon::kit {
namespace {

constexpr const char* kAnyPolarity = "any";

// The turned rectangle of a template about its centre.
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

// ---- grey values and colours --------------------------------------------------------------------

struct Template : Tool {
  PatternTool tool;
  int width = 0, height = 0;
};

template <class Image>
std::unique_ptr<Tool> LoadTemplate(const Values& values, const Sources& sources) {
  const std::string name = values.Text("template");
  Image pattern;
  sources.Read(name, pattern);
  auto taught = std::make_unique<Template>();
  taught->width = pattern.width;
  taught->height = pattern.height;
  taught->tool = TeachPattern(sources.Shown(name), pattern, values);
  return taught;
}

template <class Image>
void Match(const Call& call, const Image& image) {
  const auto& taught = static_cast<const Template&>(*call.tool);
  const PatternQuery query = PatternQueryOf(call.values);
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

// ---- edges --------------------------------------------------------------------------------------

struct Edges : Tool {
  EdgeTool tool;
};

std::unique_ptr<Tool> LoadPart(const Values& values, const Sources& sources) {
  const std::string name = values.Text("template");
  GreyImage pattern;
  sources.Read(name, pattern);
  auto edges = std::make_unique<Edges>();
  edges->tool = TeachEdges(sources.Shown(name), pattern, values);
  return edges;
}

void Locate(const Call& call) {
  const GeoMatchTool& tool = *static_cast<const Edges&>(*call.tool).tool;
  const EdgeMatch match = FindEdges(*call.a.grey, tool, EdgeQueryOf(call.values));
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

// ---- parts by the finder -----------------------------------------------------------------------

struct Part : Tool {
  PartModel model;
};

std::unique_ptr<Tool> LoadModel(const Values& values, const Sources& sources) {
  auto part = std::make_unique<Part>();
  part->model = ReadPart(values.Text("template"), values, sources);
  return part;
}

void Find(const Call& call) {
  const finder::Model& model = *static_cast<const Part&>(*call.tool).model;
  for (const finder::Match& match : FindParts(*call.a.grey, model, PartQueryOf(call.values))) {
    Thing thing = {.x = match.x,
                   .y = match.y,
                   .width = model.width * match.scale,
                   .height = model.height * match.scale,
                   .angle = match.degrees,
                   .scale = match.scale,
                   .score = match.score};
    for (size_t i = 0; i < 4; ++i) {
      thing.corners[2 * i] = match.corners[i][0];
      thing.corners[2 * i + 1] = match.corners[i][1];
    }
    call.result.things.push_back(thing);
  }
}

Argument Angles() {
  return Range("angle", -360, 360, "search these angles, clockwise; without: as the template lies")
      .In("degrees")
      .Optional();
}

}  // namespace

PatternQuery PatternQueryOf(const Values& values) {
  PatternQuery query = {.minScore = values.Number("min_score"),
                        .angle = {},
                        .scale = values.List<double>("scale"),
                        .most = values.Whole("max")};
  if (values.Has("angle")) query.angle = values.List<double>("angle");
  return query;
}

template <class Image>
PatternTool TeachPattern(const std::string& name, const Image& pattern, const Values& values) {
  PatternTool tool = TeachPattern(name, pattern, values.Flag("mask"));
  std::optional<int> level;
  if (values.Has("level")) level = values.Whole("level");
  ChooseStartLevel(name, values.List<double>("scale")[0], level, tool.get());
  return tool;
}
template PatternTool TeachPattern(const std::string&, const GreyImage&, const Values&);
template PatternTool TeachPattern(const std::string&, const ColourImage&, const Values&);

EdgeQuery EdgeQueryOf(const Values& values) {
  EdgeQuery query = {values.Number("min_score"), values.Number("greediness"), {}, {}};
  if (values.Has("angle")) {
    const auto angle = values.List<double>("angle");
    query.lowest = angle[0];
    query.highest = angle[1];
  }
  return query;
}

EdgeTool TeachEdges(const std::string& name, const GreyImage& pattern, const Values& values) {
  const auto strength = values.List<double>("edges");
  return TeachEdges(name, pattern, strength[0], strength[1]);
}

finder::FindOptions PartQueryOf(const Values& values) {
  const auto angle = values.List<double>("angle"), scale = values.List<double>("scale");
  finder::FindOptions query = {.angleLow = angle[0],
                               .angleHigh = angle[1],
                               .scaleLow = scale[0],
                               .scaleHigh = scale[1],
                               .minScore = values.Number("min_score"),
                               .maxCount = values.Whole("max"),
                               .maxOverlap = values.Number("overlap"),
                               .polarity = values.Text("polarity") == kAnyPolarity
                                               ? finder::Polarity::kAny
                                               : finder::Polarity::kSame};
  if (values.Has("region")) {
    const auto region = values.List<int>("region");
    query.left = region[0];
    query.top = region[1];
    query.right = region[0] + region[2];
    query.bottom = region[1] + region[3];
  }
  return query;
}

PartModel ReadPart(const std::string& name, const Values& values, const Sources& sources) {
  std::optional<finder::Way> way;
  if (values.Has("by")) way = WayNamed(values.Text("by"));
  PartModel part;
  if (sources.pictures.contains(name)) {
    GreyImage pattern;
    sources.Read(name, pattern);
    part = TeachPart(name, pattern, way.value_or(finder::Way::kEdges));
  } else {
    part = ReadPart(sources.File(name), way, sources.reading);
  }
  if (part->way == finder::Way::kGrey && values.Text("polarity") == kAnyPolarity) {
    throw Failure("'" + sources.Shown(name) + "' is found by " + kByGray + ": polarity '" +
                  kAnyPolarity + "' is of edges alone");
  }
  return part;
}

std::vector<Operation> MatchingOperations() {
  constexpr const char* kFamily = "matching";
  const std::vector<Argument> arguments = {
      File("template", "the picture to find"),
      Angles(),
      Range("scale", 0.1, 10, "search these sizes, relative to the template").Or("[1, 1]"),
      Number("min_score", 0, 1, "correlation that is a match").Or("0.7"),
      Whole("max", 1, 500, "at most this many, the best").Or("50"),
      Whole("level", 0, 6,
            "start the search at this level of the pyramid: 0 is full resolution, slow and sure; "
            "without: as coarse as the template and the scale allow")
          .Optional(),
      Flag("mask", "black pixels of the template do not count").Or("false"),
  };
  return {
      {.name = "match",
       .family = kFamily,
       .summary = "places of a template by its grey values, the best first",
       .output = Kind::kMatches,
       .arguments = arguments,
       .exports = {{"IxCreateNCCTool", "a tool that will hold a template"},
                   {"IxCreateNCCMatchModel", "teach a grey template"},
                   {"IxGet_DefaultPyramidLevel", "the coarsest level of the template"},
                   {"IxGet_CurrentPyramidLevel", "the level where a search starts"},
                   {"IxSetPyramidLevel", "start searches at another level"},
                   {"IxFindNCCMatchModel", "find a grey template"},
                   {"IxGetNCCMatchResults", "one match of the last search"},
                   {"IxDestroyNCCModel", "release the tool"}},
       .run = [](const Call& call) { Match(call, *call.a.grey); },
       .prepare = LoadTemplate<GreyImage>},
      {.name = "match-color",
       .family = kFamily,
       .summary = "places of a template by its colours, the best first",
       .inputs = {Kind::kColour, Kind::kNone},
       .output = Kind::kMatches,
       .arguments = arguments,
       .exports = {{"IxCreateNCCMatchColorModel", "teach a colour template"},
                   {"IxFindNCCMatchColorModel", "find a colour template"}},
       .run = [](const Call& call) { Match(call, *call.a.colour); },
       .prepare = LoadTemplate<ColourImage>},
      {.name = "locate",
       .family = kFamily,
       .summary = "the best place of a part by its edges, whatever its brightness and angle",
       .output = Kind::kMatches,
       .arguments = {File("template", "a picture of the part"), Angles(),
                     Number("min_score", 0, 1, "agreement of the edges that is a match").Or("0.5"),
                     Number("greediness", 0, 0.99,
                            "how early a place is given up: 0 never wrongly, 0.99 fastest")
                         .Or("0.7"),
                     Range("edges", 0, 255, "limits of edge strength, 255 for the strongest")
                         .Or("[30, 80]")},
       .exports = {{"IxCreateGeoTool", "a tool that will hold an edge template"},
                   {"IxCreateGeoMatchModel", "teach the edges of a template"},
                   {"IxFindGeoMatchModel", "find the taught edges"},
                   {"IxDestroyMatchModel", "release the tool"}},
       .run = Locate,
       .prepare = LoadPart},
      {.name = "find",
       .family = kFamily,
       .summary = "every place of a part, turned, touching others or half covered, the best first",
       .output = Kind::kMatches,
       .arguments =
           {File("template", "a picture of the part, or a model that teach wrote"),
            Choice("by", {kByEdges, kByGray},
                   "look at directions of edges, or at grey values; without: as the model "
                   "was taught, a picture by edges")
                .Optional(),
            Range("angle", -360, 360, "search these angles, clockwise")
                .In("degrees")
                .Or("[-180, 180]"),
            Range("scale", 0.5, 2, "search these sizes, relative to the template").Or("[1, 1]"),
            Rectangle("region", finder::kMaxSide,
                      "centres lie in these pixels; without: anywhere in the picture")
                .Optional(),
            Number("min_score", 0.1, 1, "agreement that is a match").Or("0.5"),
            Whole("max", 1, 10000, "at most this many, the best").Or("100"),
            Number("overlap", 0, 1,
                   "share of the smaller outline that two matches may have in common")
                .Or("0.5"),
            Choice("polarity", {"same", kAnyPolarity},
                   "any: edges may also be dark on bright where the template's are bright "
                   "on dark")
                .Or("\"same\"")},
       .run = Find,
       .prepare = LoadModel},
  };
}

}  // namespace quillon::kit
