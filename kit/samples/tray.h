// A drawn picture of metal parts on a dark tray, lit from the top left, and the truth about it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quillon/image.h"

namespace quillon::kit {

// What is known of one part: exactly which pixels it covers.
struct DrawnPart {
  std::string kind;
  int64_t area;
  double x, y;                   // mean column and row of its pixels
  double degrees;                // how far it is turned, clockwise as displayed
  int left, top, right, bottom;  // its outermost pixels
};

// In grey, every pixel of a part is at or above this level and every other pixel below it; with
// both well away from it, an automatic threshold finds the same pixels.
constexpr int kPartLevel = 124;

// The tray of this seed. Parts neither touch each other nor the border; they come in the order of
// their topmost pixels. With `fine` above 1 the same tray is drawn with so many pixels a side for
// each: where outlines lie within a pixel shows only so.
void DrawTray(uint32_t seed, int width, int height, ColourImage& image,
              std::vector<DrawnPart>& parts, int fine = 1);

// One bracket alone, not turned, in the middle of a small picture: a template for searches.
void DrawBracket(ColourImage& image);

}  // namespace quillon::kit
