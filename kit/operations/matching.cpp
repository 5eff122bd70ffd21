// Parts found by their grey values, colours or edges, by the library and by the finder.
#include "kit/operations/matching.h"

#include <algorithm>
#include <optional>
#include <type_traits>

#include "kit/errors.h"
#include "kit/operations/operation.h"
#include "kit/search/edge_search.h"
#include "kit/search/part_search.h"
#include "kit/search/pattern_search.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr const char* kAnyPolarity = "any";

// ---- the report of scored matches ---------------------------------------------------------------

Report PageOfMatches(const std::string& pattern, const std::string& picture) {
  return {.title = pattern + " in " + picture,
          .layers = {{"Outline", Tone::kCyan}, {"Centre", Tone::kAmber}, {"Score", Tone::kWhite}}};
}

void DrawMatches(PictureView view, const Searched& searched, int firstRow, Report& report) {
  enum { kOutline, kCentre, kScore };
  Picture& picture = AddPicture("Picture", view, report);
  int row = firstRow;
  for (const Thing& match : searched.things) {
    const std::vector<Point> corners = CornersOf(match);
    picture.Polygon({kOutline, row}, corners);
    picture.Cross({kCentre, row}, {match.x, match.y});
    picture.Score({kScore, row}, corners[0], match.score);
    ++row;
  }
}

// A search without a match says so, and how good the best place was where that is known: a match of
// low score could be taken for a fault of the files otherwise.
void SayNoMatch(std::optional<double> bestScore, Findings& findings) {
  findings.facts.push_back({"found", "Matches", int64_t{0}});
  if (bestScore) findings.facts.push_back({"best_score", "Score of the best place", *bestScore});
}

template <class Match>
std::optional<double> ScoreOfBest(const std::vector<Match>& matches) {
  return matches.empty() ? std::optional<double>() : matches[0].score;
}

// ---- grey values and colours --------------------------------------------------------------------

PatternQuery PatternQueryOf(const Values& values) {
  PatternQuery query = {.minScore = values.Number("min_score"),
                        .angle = {},
                        .scale = values.List<double>("scale"),
                        .most = values.Whole("max")};
  if (values.Has("angle")) query.angle = values.List<double>("angle");
  return query;
}

template <class Image>
PatternTool Teach(const std::string& name, const Image& pattern, const Values& values) {
  PatternTool tool = TeachPattern(name, pattern, values.Flag("mask"));
  std::optional<int> level;
  if (values.Has("level")) level = values.Whole("level");
  ChooseStartLevel(name, values.List<double>("scale")[0], level, tool.get());
  return tool;
}

template <class Image>
struct Template : Tool {
  Findings Tell(const Searched& searched) const override;
  Report Page(const std::string& picture) const override;
  void Draw(const Searched& searched, int firstRow, Report& report) const override {
    PictureView view = searched.picture;
    if (std::is_same_v<Image, GreyImage>) view.colour = nullptr;
    DrawMatches(view, searched, firstRow, report);
  }

  std::string name;  // its file
  Image pattern;
  PatternTool tool;
  PatternQuery query;  // of the last search
};

template <class Image>
std::unique_ptr<Tool> LoadTemplate(const Values& values, const Sources& sources) {
  const std::string name = values.Text("template");
  auto taught = std::make_unique<Template<Image>>();
  taught->name = sources.Shown(name);
  sources.Read(name, taught->pattern);
  taught->tool = Teach(taught->name, taught->pattern, values);
  return taught;
}

// Refuses a template that does not fit into the picture at any angle: that it is not found would
// say nothing about the part.
template <class Image>
void RequireRoom(const Image& pattern, const Image& image, const PatternQuery& query) {
  const double width = pattern.width * query.scale[0], height = pattern.height * query.scale[0];
  const bool hasRoom = query.angle.empty()
                           ? width <= image.width && height <= image.height
                           : std::min(width, height) <= std::min(image.width, image.height);
  if (hasRoom) return;
  const auto size = [](const Image& of) { return SizeText(of.width, of.height); };
  throw Failure("the template, " + size(pattern) + ", is larger than the picture, " + size(image) +
                ", at the smallest scale of " + Plain(query.scale[0]));
}

template <class Image>
void Match(const Call& call, const Image& image) {
  auto& taught = static_cast<Template<Image>&>(*call.tool);
  taught.query = PatternQueryOf(call.values);
  RequireRoom(taught.pattern, image, taught.query);
  for (const NccResult& match : FindPattern(image, taught.tool.get(), taught.query)) {
    const double width = taught.pattern.width * match.scale;
    const double height = taught.pattern.height * match.scale;
    call.result.things.push_back(
        {.x = match.x,
         .y = match.y,
         .width = width,
         .height = height,
         .angle = match.angle,
         .scale = match.scale,
         .score = match.score,
         .corners = TurnedBox{{match.x, match.y, match.angle}, width, height}.Corners()});
  }
}

template <class Image>
Findings Template<Image>::Tell(const Searched& searched) const {
  Findings findings{.key = NameOf(searched.kind),
                    .facts = {{"levels", "Levels of the template",
                               int64_t{IxGet_DefaultPyramidLevel(tool.get())} + 1},
                              {"start", "Search starts at level",
                               int64_t{IxGet_CurrentPyramidLevel(tool.get())}}},
                    .columns = {{"x", "x", 2},
                                {"y", "y", 2},
                                {"angle", "angle", 2},
                                {"scale", "scale", 3},
                                {"score", "score", 3}},
                    .rows = {}};
  for (const Thing& match : searched.things) {
    findings.rows.push_back({match.x, match.y, match.angle, match.scale, match.score});
  }
  if (!searched.things.empty()) return findings;
  PatternQuery any = query;
  any.minScore = 0;
  any.most = 1;
  const auto best = [&](const auto& image) { return FindPattern(image, tool.get(), any); };
  if constexpr (std::is_same_v<Image, GreyImage>) {
    SayNoMatch(ScoreOfBest(best(*searched.picture.grey)), findings);
  } else {
    SayNoMatch(ScoreOfBest(best(*searched.picture.colour)), findings);
  }
  return findings;
}

template <class Image>
Report Template<Image>::Page(const std::string& picture) const {
  Report report = PageOfMatches(name, picture);
  report.pictures.emplace_back("Template", pattern);
  return report;
}

// ---- edges --------------------------------------------------------------------------------------

EdgeQuery EdgeQueryOf(const Values& values) {
  EdgeQuery query = {values.Number("min_score"), values.Number("greediness"), {}, {}};
  if (values.Has("angle")) {
    const auto angle = values.List<double>("angle");
    query.lowest = angle[0];
    query.highest = angle[1];
  }
  return query;
}

struct Edges : Tool {
  Findings Tell(const Searched& searched) const override;
  Report Page(const std::string& picture) const override;
  void Draw(const Searched& searched, int firstRow, Report& report) const override;

  std::string name;  // the template's file
  GreyImage pattern;
  EdgeTool tool;
  EdgeMatch best = {};  // of the last search

 private:
  enum Layers { kEdges, kOutline, kPlace };
};

std::unique_ptr<Tool> LoadPart(const Values& values, const Sources& sources) {
  const std::string name = values.Text("template");
  auto edges = std::make_unique<Edges>();
  edges->name = sources.Shown(name);
  sources.Read(name, edges->pattern);
  const auto strength = values.List<double>("edges");
  edges->tool = TeachEdges(edges->name, edges->pattern, strength[0], strength[1]);
  return edges;
}

void Locate(const Call& call) {
  auto& edges = static_cast<Edges&>(*call.tool);
  edges.best = FindEdges(*call.a.grey, *edges.tool, EdgeQueryOf(call.values));
  if (!edges.best.found) return;
  const GeoModelLevel& model = *edges.tool->model;
  const Pose& pose = edges.best.pose;
  const double width = model.width, height = model.height;
  const Point centre = CentreOf(model, pose);
  call.result.things.push_back(
      {.x = pose.x,
       .y = pose.y,
       .width = width,
       .height = height,
       .angle = pose.degrees,
       .scale = 1,
       .score = edges.best.score,
       .corners = TurnedBox{{centre.x, centre.y, pose.degrees}, width, height}.Corners()});
}

Findings Edges::Tell(const Searched& searched) const {
  Findings findings{
      .key = NameOf(searched.kind),
      .facts = {{"edge_points", "Edge points of the template", int64_t{tool->model->count}},
                {"best_score", "Score of the best place", best.score}},
      .columns = {{"x", "x", 0}, {"y", "y", 0}, {"angle", "angle"}, {"score", "score", 3}},
      .rows = {}};
  for (const Thing& match : searched.things) {
    findings.rows.push_back(
        {static_cast<int64_t>(match.x), static_cast<int64_t>(match.y), match.angle, match.score});
  }
  if (searched.things.empty()) SayNoMatch({}, findings);  // the facts tell the best score already
  return findings;
}

Report Edges::Page(const std::string& picture) const {
  Report report{.title = name + " in " + picture};
  report.layers = {
      {"Taught edges", Tone::kGreen}, {"Outline", Tone::kCyan}, {"Reference point", Tone::kAmber}};
  Picture& taught = report.pictures.emplace_back("Template", pattern);
  const GeoModelLevel& model = *tool->model;
  const Pose inTemplate = {double(model.referenceX), double(model.referenceY), 0};
  taught.Dots({kEdges}, EdgePoints(model, inTemplate));
  taught.Cross({kPlace}, {inTemplate.x, inTemplate.y});
  return report;
}

void Edges::Draw(const Searched& searched, int firstRow, Report& report) const {
  Picture& picture = report.pictures.emplace_back("Picture", *searched.picture.grey);
  for (const Thing& match : searched.things) {  // one, or none
    picture.Dots({kEdges, firstRow}, EdgePoints(*tool->model, best.pose));
    picture.Polygon({kOutline, firstRow}, CornersOf(match));
    picture.Cross({kPlace, firstRow}, {match.x, match.y});
  }
}

// ---- parts by the finder -----------------------------------------------------------------------

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

PartModel ReadPart(const Values& values, const Sources& sources) {
  const std::string name = values.Text("template");
  std::optional<finder::Way> way;
  if (values.Has("by")) way = WayNamed(values.Text("by"));
  GreyImage masked;
  PartMask mask;
  if (values.Has("mask")) {
    sources.Read(values.Text("mask"), masked);
    mask.picture = &masked;
  }
  if (values.Has("polygon")) mask.polygon = values.List<std::array<int, 2>>("polygon");
  PartModel part;
  if (sources.pictures.contains(name)) {
    GreyImage pattern;
    sources.Read(name, pattern);
    part = TeachPart(name, pattern, way.value_or(finder::Way::kEdges), mask);
  } else {
    part = quillon::kit::ReadPart(sources.File(name), way, mask, sources.reading);
  }
  if (part->way == finder::Way::kGrey && values.Text("polarity") == kAnyPolarity) {
    throw Failure("'" + sources.Shown(name) + "' is found by " + kByGray + ": polarity '" +
                  kAnyPolarity + "' is of edges alone");
  }
  return part;
}

struct Part : Tool {
  Findings Tell(const Searched& searched) const override;
  Report Page(const std::string& picture) const override;
  void Draw(const Searched& searched, int firstRow, Report& report) const override {
    DrawMatches({.grey = searched.picture.grey}, searched, firstRow, report);
  }

  std::string name;  // the template's file
  PartModel model;
  finder::FindOptions query;  // of the last search, and what it found
  std::vector<finder::Match> matches;
};

std::unique_ptr<Tool> LoadModel(const Values& values, const Sources& sources) {
  auto part = std::make_unique<Part>();
  part->name = sources.Shown(values.Text("template"));
  part->model = ReadPart(values, sources);
  return part;
}

void Find(const Call& call) {
  auto& part = static_cast<Part&>(*call.tool);
  const finder::Model& model = *part.model;
  part.query = PartQueryOf(call.values);
  part.matches = FindParts(*call.a.grey, model, part.query);
  for (const finder::Match& match : part.matches) {
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

Findings Part::Tell(const Searched& searched) const {
  Findings findings{.key = NameOf(searched.kind),
                    .facts = {{"by", "Found by", std::string(NameOf(model->way))},
                              {"levels", "Levels of the template", int64_t{model->levels}}},
                    .columns = {{"x", "x", 2},
                                {"y", "y", 2},
                                {"angle", "angle", 2},
                                {"scale", "scale", 3},
                                {"score", "score", 3},
                                {"visible", "visible", 2}},
                    .rows = {}};
  for (const finder::Match& m : matches) {
    findings.rows.push_back({m.x, m.y, m.degrees, m.scale, m.score, m.visible});
  }
  if (!matches.empty()) return findings;
  finder::FindOptions any = query;
  any.minScore = kLeastPartScore;
  any.maxCount = 1;
  SayNoMatch(ScoreOfBest(FindParts(*searched.picture.grey, *model, any)), findings);
  return findings;
}

Report Part::Page(const std::string& picture) const {
  Report report = PageOfMatches(name, picture);
  GreyImage taught;
  TaughtPicture(*model, taught);
  report.pictures.emplace_back("Template", taught);
  return report;
}

// ---- the table ----------------------------------------------------------------------------------

Argument Angles() {
  return Range("angle", -360, 360, "search these angles, clockwise; without: as the template lies")
      .In("degrees")
      .Optional();
}

}  // namespace

Argument MaskOfTemplate() {
  return File("mask", "a picture of the template's size, black where it does not count").Optional();
}

Argument PolygonOfTemplate() {
  return Points("polygon",
                "of the template only what lies inside this polygon counts, in its pixels")
      .OfTemplate()
      .Optional();
}

std::vector<Operation> MatchingOperations() {
  constexpr const char* kFamily = "matching";
  constexpr const char* kMatchAdvice =
      "For parts that touch or are partly covered, and for those that lie at any angle, `quillon "
      "find` serves better: it needs no level and looks by edges or by grey values.";
  const std::vector<Argument> arguments = {
      File("template", "the picture to find").ByPlace(),
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
       .prepare = LoadTemplate<GreyImage>,
       .advice = kMatchAdvice},
      {.name = "match-color",
       .family = kFamily,
       .summary = "places of a template by its colours, the best first",
       .inputs = {Kind::kColour, Kind::kNone},
       .output = Kind::kMatches,
       .arguments = arguments,
       .exports = {{"IxCreateNCCMatchColorModel", "teach a colour template"},
                   {"IxFindNCCMatchColorModel", "find a colour template"}},
       .run = [](const Call& call) { Match(call, *call.a.colour); },
       .prepare = LoadTemplate<ColourImage>,
       .advice = kMatchAdvice},
      {.name = "locate",
       .family = kFamily,
       .summary = "the best place of a part by its edges, whatever its brightness and angle",
       .output = Kind::kMatches,
       .arguments = {File("template", "a picture of the part").ByPlace(), Angles(),
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
       .prepare = LoadPart,
       .advice = "For more than the best place, other sizes, fractions of a pixel, and parts that "
                 "touch or are partly covered, `quillon find` serves better."},
      {.name = "find",
       .family = kFamily,
       .summary = "every place of a part, turned, touching others or half covered, the best first",
       .output = Kind::kMatches,
       .arguments =
           {File("template", "a picture of the part, or a model that teach wrote")
                .ByPlace()
                .Holding(Argument::Holds::kTemplate),
            Choice("by", {kByEdges, kByGray},
                   "look at directions of edges, or at grey values; without: as the model "
                   "was taught, a picture by edges")
                .Optional(),
            MaskOfTemplate(), PolygonOfTemplate(),
            Range("angle", -360, 360, "search these angles, clockwise")
                .In("degrees")
                .Or("[-180, 180]"),
            Range("scale", 0.5, 2, "search these sizes, relative to the template").Or("[1, 1]"),
            Rectangle("region", finder::kMaxSide,
                      "centres lie in these pixels; without: anywhere in the picture")
                .Optional(),
            Number("min_score", kLeastPartScore, 1, "agreement that is a match").Or("0.5"),
            Whole("max", 1, 10000, "at most this many, the best").Or("100"),
            Number("overlap", 0, 1,
                   "share of its outline that a match may have in common with better ones")
                .Or("0.5"),
            Choice("polarity", {"same", kAnyPolarity},
                   "any: edges may also be dark on bright where the template's are bright "
                   "on dark")
                .Or("\"same\"")},
       .run = Find,
       .prepare = LoadModel,
       .className = "Finder"},
  };
}

}  // namespace quillon::kit
