#include "geomatch/tool.h"

#include <new>

#include "geomatch/edges.h"
#include "pyramid/pyramid.h"

namespace quillon {
namespace {

constexpr int kSparsePoints = 15;  // a top level with fewer is left out

}  // namespace

bool GeoOwnedLevel::Allocate(int points) {
  const auto size = static_cast<size_t>(points);
  components = Buffer<int32_t>(4 * size);
  magnitudes = Buffer<double>(size);
  const bool done = components && magnitudes;
  count = done ? points : 0;
  const Components to = Writable();
  x = to.x;
  y = to.y;
  gradientX = to.gradientX;
  gradientY = to.gradientY;
  inverseMagnitude = to.inverseMagnitude;
  return done;
}

GeoOwnedLevel::Components GeoOwnedLevel::Writable() {
  int32_t* first = components.data();
  return {.x = first,
          .y = first + count,
          .gradientX = first + 2 * static_cast<ptrdiff_t>(count),
          .gradientY = first + 3 * static_cast<ptrdiff_t>(count),
          .inverseMagnitude = magnitudes.data()};
}

GeoMatchTool* ConstructGeoTool() {
  auto* tool = OrNote(new (std::nothrow) GeoTaughtTool);
  if (tool) tool->model = &tool->levels[0];
  return tool;
}

void DestroyGeoTool(GeoMatchTool* tool) { delete static_cast<GeoTaughtTool*>(tool); }

bool BuildGeoModel(const Kernels& kernels, const GreyImage& image, double high, double low,
                   GeoMatchTool& tool) {
  auto& taught = static_cast<GeoTaughtTool&>(tool);
  taught.ready = false;
  for (GeoOwnedLevel& level : taught.levels) level.Allocate(0);
  taught.topLevel =
      CoarsestLevel(static_cast<uint32_t>(image.width) * static_cast<uint32_t>(image.height));
  LevelImage reduced;
  for (int k = 0; k <= taught.topLevel; ++k) {
    GeoOwnedLevel& level = taught.levels[k];
    level.width = ReducedSize(image.width, k);
    level.height = ReducedSize(image.height, k);
    level.referenceX = level.width / 2;
    level.referenceY = level.height / 2;
    if (!reduced.Reduce(kernels, image, k)) return false;
    if (!ExtractGeoEdges(kernels, reduced.Pixels(), high, low, level)) return false;
  }
  // Once only: the next one is used however few points it has.
  if (taught.topLevel > 0 && taught.levels[taught.topLevel].count < kSparsePoints) {
    --taught.topLevel;
  }
  taught.ready = true;
  return true;
}

}  // namespace quillon
