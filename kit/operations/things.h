// What operations make, and what they find: the kinds of both, a thing that was found, and what can
// be measured of things of each kind.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "kit/geometry.h"
#include "kit/report/findings.h"

namespace quillon::kit {

enum class Kind {
  kNone,
  kPicture,
  kColour,
  kBlobs,
  kMatches,
  kDefects,
  kEdges,
  kPairs,
  kLines,
  kCircles,
  kShapes,
  kRegions
};

// "picture", "colour picture", "blobs", "matches", "defects", "edges", "pairs", "lines", "circles",
// "shapes", "regions"
const char* NameOf(Kind kind);
// "a picture", "blobs"
std::string WithArticle(Kind kind);
// Blobs, their shapes and defects, which are made of pixels.
inline bool HasPixelsOfItsOwn(Kind kind) {
  return kind == Kind::kBlobs || kind == Kind::kShapes || kind == Kind::kDefects;
}
inline bool IsPicture(Kind kind) { return kind == Kind::kPicture || kind == Kind::kColour; }
// Whether what is found speaks against the picture: it passes where there is none.
inline bool IsFault(Kind kind) { return kind == Kind::kDefects; }

// A blob, a match, a defect, an edge or a shape through edges, with what can be measured of it; 0
// where that does not apply.
struct Thing {
  double area = 0, x = 0, y = 0, width = 0, height = 0, angle = 0, scale = 0, score = 0, mean = 0;
  int left = 0, top = 0, right = 0, bottom = 0;  // the outermost pixels of a blob or a defect
  std::array<double, 8> corners = {};            // of the turned rectangle, x and y in turn
  double missing = 0, extra = 0;                 // pixels of a defect
  double position = 0, strength = 0;             // of an edge or a pair of edges in its rectangle
  double diameter = 0, length = 0;               // of a circle, of a line
  double rms = 0, worst = 0, form = 0;           // distances of edge points from their shape
  double used = 0, refused = 0;                  // how many edge points
  double median = 0, deviation = 0;              // of grey values
  double darkest = 0, brightest = 0, low = 0, high = 0;
  double contrast = 0, hull = 0, convexity = 0, circularity = 0, elongation = 0;  // of a shape
  double axis = 0, mxx = 0, mxy = 0, myy = 0;
  std::vector<Point> usedPoints = {}, refusedPoints = {};  // edge points of a shape through them
  int number = -1;  // of a blob among all blobs, before the selection; of others their place
};

// In the place of one that was not found where it should be, so that others keep their numbers.
Thing NothingFound();
bool IsThere(const Thing& thing);

// What can be measured.
struct Quantity {
  const char* name;
  const char* summary;
  double Thing::*member;     // null: a count, or the mean of a picture
  std::vector<Kind> inputs;  // what it can be measured of
  int decimals;              // on pages
  bool isSigned = false;     // it can be negative
};
const std::vector<Quantity>& Quantities();

// All that can be measured of things of these kinds, and the columns and rows that a thing reaches.
std::vector<Column> ThingColumns(const std::vector<Kind>& kinds);

// What is in these columns for a thing of one of the kinds; nothing where a column does not apply.
std::vector<Cell> ThingCells(const Thing& thing, Kind kind, const std::vector<Kind>& kinds);

}  // namespace quillon::kit
