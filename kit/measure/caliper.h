// Calipers: where grey values step along a turned rectangle, to a hundredth of a pixel.
//
// The rectangle is sampled at unit steps (bilinear) and averaged along its height, which gives one
// profile across its width. Steep places of the profile, smoothed by a Gaussian, are candidates;
// then the profile around each is taken as a blurred step,
//
//   grey(u) = middle + step * erf((u - position) / (sqrt(2) * blur)) / 2,
//
// whose four unknowns are fitted by least squares: the most likely ones under even noise. Where
// grey clearly changes beside the step - a bevel, a shadow - it is taken as a step between two
// ramps that is blurred as a whole: a step without ramps would be drawn to the side. The method is
// that of Hagara and Kulla, "Edge detection with sub-pixel accuracy based on approximation of edge
// with erf function", Radioengineering 20 (2), 2011.
#pragma once

#include <optional>
#include <vector>

#include "kit/geometry.h"
#include "quillon/image.h"

namespace quillon::kit {

enum class EdgeSign { kAny, kRising, kFalling };  // rising: from dark to bright
enum class EdgeOrder { kAll, kFirst, kLast, kStrongest };

struct EdgeRule {
  EdgeSign sign = EdgeSign::kAny;
  double minStrength = 20;  // grey values of the step
  double smoothing = 1;     // of the profile in which candidates are looked for, in pixels
  EdgeOrder order = EdgeOrder::kAll;
};

struct Edge {
  Point at;
  double position;  // from the rectangle's side where it begins
  double strength;  // grey values of the step, below 0 where it falls
  double blur;      // standard deviation of the step's blur, in pixels
};

// The edges in the order of their positions, along the rectangle's width. Only what lies in the
// picture is looked at.
std::vector<Edge> FindEdges(const GreyImage& image, const TurnedBox& box, const EdgeRule& rule);

// Two edges of opposite signs that follow each other: the sides of a bar.
struct EdgePair {
  Edge first, second;
  Point Middle() const { return {(first.at.x + second.at.x) / 2, (first.at.y + second.at.y) / 2}; }
  double Width() const { return second.position - first.position; }
};

// Pairs whose first edge has the sign (any: either), without a shared edge, in the order of their
// positions; `order` is of pairs, the strongest by the weaker edge of each.
std::vector<EdgePair> FindEdgePairs(const GreyImage& image, const TurnedBox& box,
                                    const EdgeRule& rule);

// One edge from each of `count` equal parts of the rectangle, side by side along its height; the
// rule's order is not kAll.
std::vector<Point> EdgesAcross(const GreyImage& image, const TurnedBox& box, int count,
                               const EdgeRule& rule);

// A ring about a centre, between two radii; the inner one is above 0.
struct Annulus {
  Point centre;
  double inner, outer;
};

// One edge from each of `count` rays outwards, `width` pixels wide each, where the outline of a
// disc or a hole would lie without blur; the rule's order is not kAll.
std::vector<Point> EdgesAround(const GreyImage& image, const Annulus& ring, int count, double width,
                               const EdgeRule& rule);

}  // namespace quillon::kit
