// Places in pictures. (0, 0) is the centre of the top left pixel; y grows downwards.
#pragma once

namespace quillon::kit {

struct Point {
  double x, y;
};

}  // namespace quillon::kit
