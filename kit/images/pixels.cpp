#include "kit/images/pixels.h"

#include <cstring>

namespace quillon::kit {

void CutOut(const GreyImage& image, std::span<const int, 4> place, const std::string& what,
            GreyImage& part) {
  const int left = place[0], top = place[1], width = place[2], height = place[3];
  if (left > image.width - width || top > image.height - height) {
    throw Failure(what + " ends at column " + std::to_string(left + width) + ", row " +
                  std::to_string(top + height) + ", the picture has " +
                  SizeText(image.width, image.height));
  }
  part.Create(width, height);
  RequirePixels(part);
  for (int y = 0; y < height; ++y) {
    std::memcpy(part.rows[y], image.rows[top + y] + left, static_cast<size_t>(width));
  }
}

}  // namespace quillon::kit
