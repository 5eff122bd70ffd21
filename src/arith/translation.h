// Moving an image by whole pixels.
#pragma once

#include "quillon/image.h"

namespace quillon {

// result(x + dx, y + dy) = source(x, y); pixels that nothing moves to are 0. The result may be the
// source.
void TranslateImage(const GreyImage& source, GreyImage& result, int dx, int dy);

}  // namespace quillon
