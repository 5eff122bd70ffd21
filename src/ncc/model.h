// Teaching a template to a tool, and looking at what was taught.
#pragma once

#include "ncc/tool.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

// Teaches a grey or colour template; with a mask, pixels that are 0 (in all planes) do not count.
// False when memory is short: the tool then refuses to search.
template <class Pixel>
bool BuildNccModel(const Kernels& kernels, const CImage<Pixel>& image, bool useMask, NccTool& tool);

// A colour template of level 0 only, without mask. What an earlier model left in the other levels,
// the level numbers and the mask switch stays.
bool BuildSingleLevelModel(const Kernels& kernels, const ColourImage& image, NccTool& tool);

// Copies a level of the template, re-creating `result` at its size. False when the model has other
// planes than the result.
template <class Pixel>
bool CopyModelLevel(const NccTool& tool, int level, CImage<Pixel>& result);

}  // namespace quillon
