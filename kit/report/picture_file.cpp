#include "kit/report/picture_file.h"

#include <algorithm>

#include "kit/images/image_files.h"
#include "kit/images/pixels.h"

namespace quillon::kit {
namespace {

// Reduces to this size: each pixel becomes the mean of those that it stands for.
void Reduce(const ColourImage& image, int width, int height, ColourImage& reduced) {
  reduced.Create(width, height);
  RequirePixels(reduced);
  const auto edge = [](int i, int count, int length) {
    return static_cast<int>(int64_t{i} * length / count);
  };
  for (int y = 0; y < reduced.height; ++y) {
    const int top = edge(y, reduced.height, image.height);
    const int bottom = edge(y + 1, reduced.height, image.height);
    for (int x = 0; x < reduced.width; ++x) {
      const int left = edge(x, reduced.width, image.width);
      const int right = edge(x + 1, reduced.width, image.width);
      int64_t sums[3] = {};
      for (int v = top; v < bottom; ++v) {
        for (int i = 3 * left; i < 3 * right; ++i) sums[(i - 3 * left) % 3] += image.rows[v][i];
      }
      const int64_t count = int64_t{bottom - top} * (right - left);
      for (int c = 0; c < 3; ++c) {
        reduced.rows[y][3 * x + c] = static_cast<unsigned char>((sums[c] + count / 2) / count);
      }
    }
  }
}

}  // namespace

PictureFile Pack(const Picture& picture, size_t most) {
  constexpr size_t kExact = 512 * 1024;
  constexpr int kFewGreys = 16;
  constexpr int64_t kMostTried = 1'000'000;  // pixels; a PNG of more takes long, and mostly room
  const bool hasFew = picture.HasAtMost(kFewGreys);
  if (hasFew || int64_t{picture.Width()} * picture.Height() <= kMostTried) {
    PictureFile exact = {picture.Png(), "image/png"};
    if (exact.bytes.size() <= (hasFew ? most : std::min(most, kExact))) return exact;
  }
  constexpr int kQuality = 90;
  ColourImage image, reduced;
  picture.CopyTo(image);
  PictureFile file = {EncodeJpeg(image, kQuality), "image/jpeg"};
  while (file.bytes.size() > most && std::min(image.width, image.height) > 2 * file.reduction) {
    file.reduction *= 2;
    Reduce(image, image.width / file.reduction, image.height / file.reduction, reduced);
    file.bytes = EncodeJpeg(reduced, kQuality);
  }
  return file;
}

std::vector<unsigned char> Thumbnail(const Picture& picture, int width, int height) {
  ColourImage image, reduced;
  picture.CopyTo(image);
  const double factor = std::max(
      {1.0, static_cast<double>(image.width) / width, static_cast<double>(image.height) / height});
  const auto side = [&](int length) { return std::max(1, static_cast<int>(length / factor)); };
  Reduce(image, side(image.width), side(image.height), reduced);
  return EncodeJpeg(reduced);
}

}  // namespace quillon::kit
