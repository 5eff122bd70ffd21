#include "support/levels.h"

namespace quillon::test {

void ForEachLevel(const std::function<void(const Kernels&)>& check) {
  for (const Kernels* level : AvailableKernels()) {
    SCOPED_TRACE(level->level);
    check(*level);
  }
}

void ForEachLevelAndImage(const std::function<void(const Kernels&, const GreyImage&)>& check) {
  ForEachLevel([&](const Kernels& level) {
    ForEachImage([&](const GreyImage& image) { check(level, image); });
  });
}

}  // namespace quillon::test
