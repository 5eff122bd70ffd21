#include "kit/calibration/rectifier.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

// Keys' cubic convolution with a = -1/2: exact for parabolas.
double Cubic(const GreyImage& image, Point at) {
  const int left = static_cast<int>(std::floor(at.x)), top = static_cast<int>(std::floor(at.y));
  const auto weights = [](double f) {
    return std::array{((-0.5 * f + 1) * f - 0.5) * f, (1.5 * f - 2.5) * f * f + 1,
                      ((-1.5 * f + 2) * f + 0.5) * f, (0.5 * f - 0.5) * f * f};
  };
  const auto wx = weights(at.x - left), wy = weights(at.y - top);
  double sum = 0;
  for (int k = 0; k < 4; ++k) {
    const unsigned char* row = image.rows[std::clamp(top - 1 + k, 0, image.height - 1)];
    double across = 0;
    for (int i = 0; i < 4; ++i) {
      across += wx[static_cast<size_t>(i)] * row[std::clamp(left - 1 + i, 0, image.width - 1)];
    }
    sum += wy[static_cast<size_t>(k)] * across;
  }
  return sum;
}

}  // namespace

Rectifier::Rectifier(std::string name, Camera camera) try
    : path_(std::move(name)),
      camera_(std::move(camera)),
      step_(quillon::kit::UnitPerPixel(camera_)) {
  const RectifiedPlaces places(camera_);
  sources_.reserve(static_cast<size_t>(camera_.size.width) * camera_.size.height);
  for (int y = 0; y < camera_.size.height; ++y) {
    for (int x = 0; x < camera_.size.width; ++x) sources_.push_back(places.SeenAt(x, y));
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the places of rectified pixels");
}

void Rectifier::Apply(const GreyImage& image, GreyImage& rectified) const try {
  CreateCorrected(path_, camera_.size, image, rectified);
  auto source = sources_.begin();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x, ++source) {
      const auto& [sx, sy] = *source;
      const bool isInside = sx >= 0 && sy >= 0 && sx <= image.width - 1 && sy <= image.height - 1;
      const double grey = isInside ? Cubic(image, *source) : 0;
      rectified.rows[y][x] = static_cast<unsigned char>(std::clamp(grey + 0.5, 0.0, 255.0));
    }
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a rectified picture");
}

}  // namespace quillon::kit
