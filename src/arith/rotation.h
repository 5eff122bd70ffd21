// Rotation about the image's centre.
#pragma once

#include "quillon/image.h"

namespace quillon {

struct Kernels;

enum class Sampling { kNearest, kBilinear };

// Turns the image by `angle` degrees, clockwise as displayed, keeping its size. The pixel (x, y)
// shows the source at
//   sx = ((x - cx) * cos + (y - cy) * sin) + cx        cx = (width - 1) / 2
//   sy = ((y - cy) * cos - (x - cx) * sin) + cy        cy = (height - 1) / 2
// in double, in this order of operations. kNearest: the pixel at floor(sx + 0.5), floor(sy + 0.5),
// the halves being added to cx and cy beforehand. kBilinear: where sx and sy lie in 0 ... width - 1
// and 0 ... height - 1, or outside by at most 1e-9, the four pixels around are interpolated in
// double, along rows first, and rounded to nearest, up from halves. Pixels that show nothing are 0.
// The result may be the source. An angle that is not finite: nothing happens.
void RotateImage(const Kernels& kernels, Sampling sampling, const GreyImage& source,
                 GreyImage& result, double angle);

}  // namespace quillon
