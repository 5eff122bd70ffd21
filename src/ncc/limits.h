// What a search is asked for.
#pragma once

namespace quillon {

// Angles in degrees, clockwise as displayed.
struct SearchLimits {
  double minScore;
  double angleMax, angleMin;
  double scaleMax, scaleMin;
  bool rotate;
  int maxResults;
};

}  // namespace quillon
