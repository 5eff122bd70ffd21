// A drawn circuit board: dark copper on a bright ground, as it should be and as it may come, with
// defects whose places are known.
#pragma once

#include <cstdint>
#include <vector>

#include "kit/boards/board_inspector.h"
#include "quillon/image.h"

namespace quillon::kit {

// How a board lies under the camera: its middle moved, turned clockwise, stretched.
struct BoardPose {
  double x = 0, y = 0, degrees = 0, stretchX = 1, stretchY = 1;
};

struct DrawnDefect {
  const char* name;  // "open", "mousebite", "pin-hole", "short", "spur", "spurious copper"
  Difference kind;
  int left, top, right, bottom;  // of the pixels that changed
};

class SampleBoard {
 public:
  // The layout of this seed, with lanes of copper from top to bottom; at least 200 x 200.
  SampleBoard(uint32_t seed, int width, int height);

  // As it should be; `growth` pixels wider at each edge.
  void DrawGood(GreyImage& image, const BoardPose& pose = {}, double growth = 0) const;

  // With up to `count` defects, of each kind in turn.
  std::vector<DrawnDefect> DrawTested(int count, GreyImage& image,
                                      const BoardPose& pose = {}) const;

 private:
  // What lies within the radius of a line from a to b; material, or a hole in it.
  struct Stroke {
    Point a, b;
    double radius;
    bool hole = false;
  };
  // A place for a defect, and what it adds or takes.
  struct Spot {
    const char* name;
    Stroke change;
  };

  void AddBus(double top, double bottom);
  void AddPads(double top, double bottom);
  void AddPlane(double top, double bottom);
  double Within(double low, double high);
  Stroke Placed(const Stroke& stroke, const BoardPose& pose, double growth) const;
  void Render(const std::vector<Stroke>& strokes, GreyImage& image) const;
  std::vector<Stroke> PlacedStrokes(const BoardPose& pose, double growth) const;

  int width_, height_;
  uint32_t state_;
  std::vector<Stroke> strokes_;  // later ones over earlier ones
  std::vector<Spot> spots_;      // far from each other
};

}  // namespace quillon::kit
