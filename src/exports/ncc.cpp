// Exports: template matching.
#include <new>

#include "core/buffer.h"
#include "exports/guards.h"
#include "ncc/correlation.h"
#include "ncc/model.h"
#include "ncc/search.h"

namespace quillon {
namespace {

bool IsLevelOf(const NccTool* tool, int level) {
  return tool && level >= 0 && level <= tool->defaultLevel;
}

template <class Pixel>
int Find(const CImage<Pixel>& image, NccTool& tool, const SearchLimits& limits) {
  return FindNccModel(BestKernels(), image, limits, tool) ? tool.resultCount : 0;
}

}  // namespace

NccTool* IxCreateNCCTool() { return OrNote(new (std::nothrow) NccTool); }

void IxDestroyNCCModel(NccTool* tool) { delete tool; }

bool IxCreateNCCMatchModel(const GreyImage* image, NccTool* tool, bool useMask) {
  return IsGrey(image) && tool && BuildNccModel(BestKernels(), *image, useMask, *tool);
}

bool IxCreateNCCMatchColorModel(const ColourImage* image, NccTool* tool, bool useMask) {
  return HasPixels(image) && image->bpp != 8 && tool &&
         BuildNccModel(BestKernels(), *image, useMask, *tool);
}

int IxGet_DefaultPyramidLevel(const NccTool* tool) { return tool ? tool->defaultLevel : 0; }

int IxGet_CurrentPyramidLevel(const NccTool* tool) { return tool ? tool->currentLevel : 0; }

bool IxSetPyramidLevel(NccTool* tool, int level) {
  if (!IsLevelOf(tool, level)) return false;
  tool->currentLevel = level;
  return true;
}

bool IxGet_Pyramid_GrayImage(const NccTool* tool, GreyImage* result, int level) {
  return IsLevelOf(tool, level) && result && CopyModelLevel(*tool, level, *result);
}

bool IxGet_Pyramid_ColorImage(const NccTool* tool, ColourImage* result, int level) {
  return IsLevelOf(tool, level) && result && CopyModelLevel(*tool, level, *result);
}

int IxFindNCCMatchModel(const GreyImage* image, NccTool* tool, double minScore, double angleMax,
                        double angleMin, double scaleMax, double scaleMin, bool rotate,
                        int maxResults) {
  if (!IsGrey(image) || !tool) return 0;
  return Find(*image, *tool,
              {minScore, angleMax, angleMin, scaleMax, scaleMin, rotate, maxResults});
}

int IxFindNCCMatchColorModel(const ColourImage* image, NccTool* tool, double minScore,
                             double angleMax, double angleMin, double scaleMax, double scaleMin,
                             bool rotate, int maxResults) {
  if (!HasPixels(image) || image->bpp == 8 || !tool) return 0;
  return Find(*image, *tool,
              {minScore, angleMax, angleMin, scaleMax, scaleMin, rotate, maxResults});
}

bool IxGetNCCMatchResults(const NccTool* tool, int index, NccResult* result) {
  if (!tool || !result || index < 0 || index >= tool->resultCount) return false;
  *result = tool->results[index];
  return true;
}

bool IxCreateNCCMatchColorModel_ROI(const ColourImage* image, NccTool* tool) {
  return HasPixels(image) && tool && BuildSingleLevelModel(BestKernels(), *image, *tool);
}

double IxFindNCCMatchColorModel_ROI(const ColourImage* image, const NccTool* tool) {
  return HasPixels(image) && tool ? ScoreOnePosition(BestKernels(), *image, *tool) : 0.0;
}

}  // namespace quillon
