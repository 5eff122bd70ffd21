// What a template is worth: looked for on itself, does it look like itself elsewhere?
#pragma once

#include "finder/finder.h"

namespace quillon::finder {

// Fills in doubts, symmetry, likeness and slideDegrees of a model whose levels are made.
Status Judge(const FinderKernels& kernels, Model& model);

}  // namespace quillon::finder
