#include "kit/operations/tool.h"

#include <filesystem>

#include "kit/errors.h"
#include "kit/operations/places.h"

namespace quillon::kit {

Findings Tool::Tell(const Searched& searched) const {
  Findings findings{.key = NameOf(searched.kind), .columns = {{"n", "n"}}};
  for (Column& column : ThingColumns({searched.kind})) findings.columns.push_back(column);
  if (searched.things.empty()) {  // an empty table would be no answer
    std::string heading = NameOf(searched.kind);
    heading[0] = static_cast<char>(heading[0] - 'a' + 'A');
    findings.facts.push_back({"found", heading, int64_t{0}});
  }
  for (const Thing& thing : searched.things) {
    std::vector<Cell>& row = findings.rows.emplace_back();
    row.emplace_back(int64_t{thing.number});
    for (Cell& cell : ThingCells(thing, searched.kind, {searched.kind})) row.push_back(cell);
  }
  return findings;
}

Report Tool::Page(const std::string& picture) const {
  return {.title = "What was found in " + std::filesystem::path(picture).filename().string(),
          .layers = {{"Outline", Tone::kCyan}, {"Centre", Tone::kAmber}, {"Number", Tone::kWhite}}};
}

void Tool::Draw(const Searched& searched, int firstRow, Report& report) const {
  enum { kOutline, kCentre, kNumber };
  Picture& picture = AddPicture("", searched.picture, report);
  for (size_t i = 0; i < searched.things.size(); ++i) {
    const Thing& thing = searched.things[i];
    const int row = firstRow + static_cast<int>(i);
    if (!IsThere(thing)) continue;
    const std::vector<Point> corners = CornersOf(thing);
    const bool isRound = searched.kind == Kind::kCircles;
    picture.Polygon({kOutline, row},
                    isRound
                        ? EllipseIn({{thing.x, thing.y, thing.angle}, thing.width, thing.height})
                        : corners);
    picture.Cross({kCentre, row}, {thing.x, thing.y});
    picture.Label({kNumber, row}, corners[0], std::to_string(thing.number));
  }
}

void Tool::Aside(GreyImage&) const { throw Failure("there is no such picture"); }

std::vector<Point> CornersOf(const Thing& thing) {
  std::vector<Point> corners;
  for (size_t i = 0; i < thing.corners.size(); i += 2) {
    corners.push_back({thing.corners[i], thing.corners[i + 1]});
  }
  return corners;
}

Picture& AddPicture(const std::string& caption, PictureView view, Report& report) {
  return report.pictures.emplace_back(view.HasColour() ? Picture(caption, *view.colour)
                                                       : Picture(caption, *view.grey));
}

}  // namespace quillon::kit
