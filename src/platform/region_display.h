// The picture of a region: its runs in red under the exclusive-or of the assigned image.
#pragma once

#include "blob/region.h"

namespace quillon {

// Draws every run as a red line that lacks its last pixel, then combines the assigned image, as it
// is now, into the display image by exclusive-or. The region has both, with pixels.
void DrawRegionDisplay(const RLERegion& region);

// The part of a run that is drawn: columns [from, to) of row y, inside the display image. Empty
// where from >= to.
struct DrawnLine {
  int from, to, y;
};
inline DrawnLine VisibleLine(const RunRecord& run, const ColourImage& display) {
  if (run.y < 0 || run.y >= display.height) return {};
  const int from = run.xStart > 0 ? run.xStart : 0;
  const int to = run.xEnd < display.width ? run.xEnd : display.width;
  return {from, to, run.y};
}

}  // namespace quillon
