// What the stages of a search share.
#include "ncc/stages.h"

namespace quillon {
namespace {

// A limit that a grid point misses by rounding is met.
bool Within(double value, double low, double high, double step) {
  const double slack = step * (1 + 1e-9);
  return value >= low - slack && value <= high + slack;
}

}  // namespace

bool Search::Counts(int level) const {
  constexpr uint32_t kFewest = 16;  // what the coarsest level of a model keeps at least
  const NccLevel& pattern = tool.levels[level];
  return pattern.count >= kFewest * static_cast<uint32_t>(pattern.planes) && pattern.deviation > 0;
}

bool Search::AllowsDegrees(double degrees, double step) const {
  return Within(degrees, limits.angleMin, limits.angleMax, step);
}

bool Search::AllowsScale(int index, double step) const {
  return Within(lattice.Scale(index), limits.scaleMin, limits.scaleMax, step);
}

CellReach Search::Reach(int level) const {
  const bool scale = limits.scaleMin < limits.scaleMax;
  return {.pixels = 1,
          .degrees = limits.rotate ? lattice.AngleStep(level) : 0,
          .scale = scale ? lattice.ScaleStep(level) : 0};
}

}  // namespace quillon
