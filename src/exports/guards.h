// What every export file starts from: the public declarations, the guards and the choice of
// kernels.
#pragma once

#include "core/image_access.h"
#include "quillon/quillon.h"
#include "simd/kernels.h"
