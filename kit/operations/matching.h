// What of a template counts, as arguments that finding and teaching share.
#pragma once

#include "kit/operations/argument.h"

namespace quillon::kit {

Argument MaskOfTemplate();     // "mask": a file
Argument PolygonOfTemplate();  // "polygon"

}  // namespace quillon::kit
