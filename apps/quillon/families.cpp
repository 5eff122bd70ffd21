#include "commands.h"

namespace quillon::app {

std::span<const Family* const> Families() {
  static constexpr const Family* kFamilies[] = {
      &kGrey,       &kThresholds, &kNeighbourhoodFilters, &kPixelArithmetic, &kGeometricTransforms,
      &kMorphology, &kBlobs,      &kTemplateMatching,     &kEdgeMatching,    &kRecipes,
      &kInspection, &kSample,     &kColourSpaces,         &kFlatField,       &kLens,
      &kGeneral,
  };
  return kFamilies;
}

}  // namespace quillon::app
