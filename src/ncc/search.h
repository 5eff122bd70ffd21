// Finding a template: a sweep over all positions, angles and scales at the coarsest level, then the
// candidates from level to level, then a fit at full resolution.
#pragma once

#include "ncc/limits.h"
#include "ncc/tool.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Searches the image and fills the tool's results. False, leaving them alone, when the tool has no
// model of the image's kind; false with no results when memory is short.
template <class Pixel>
bool FindNccModel(const Kernels& kernels, const CImage<Pixel>& image, const SearchLimits& limits,
                  NccTool& tool);

}  // namespace quillon
