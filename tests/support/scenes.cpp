#include "support/scenes.h"

#include <algorithm>
#include <cmath>

namespace quillon::test {
namespace {

constexpr int kFine = 8;  // texels a pixel, each way

struct Texture {
  int width, height;
  std::vector<float> texels;
  float At(int x, int y) const { return texels[static_cast<size_t>(y) * width + x]; }
};

// Discs, bars and rings of many sizes over a slope.
Texture MakeTexture(int width, int height, double shapes, Random& random) {
  Texture t = {width * kFine, height * kFine, {}};
  t.texels.resize(static_cast<size_t>(t.width) * t.height);
  const double slopeX = random.Unit() * 60 - 30, slopeY = random.Unit() * 60 - 30;
  for (int y = 0; y < t.height; ++y) {
    for (int x = 0; x < t.width; ++x) {
      t.texels[static_cast<size_t>(y) * t.width + x] =
          static_cast<float>(128 + slopeX * x / t.width + slopeY * y / t.height);
    }
  }
  const double side = std::min({width, height, 64}) * kFine;
  const int count = static_cast<int>(shapes * width * height / 4096);
  for (int i = 0; i < count; ++i) {
    const double cx = random.Unit() * t.width, cy = random.Unit() * t.height;
    const double size = side * (0.05 + 0.2 * random.Unit());
    const double a = random.Unit() * 6.2832, c = std::cos(a), s = std::sin(a);
    const double aspect = 0.2 + 0.8 * random.Unit();
    const int kind = random.Within(0, 2);
    const auto value = static_cast<float>(random.Within(10, 245));
    const int left = std::max(static_cast<int>(cx - 1.5 * size), 0);
    const int right = std::min(static_cast<int>(cx + 1.5 * size), t.width - 1);
    const int top = std::max(static_cast<int>(cy - 1.5 * size), 0);
    const int bottom = std::min(static_cast<int>(cy + 1.5 * size), t.height - 1);
    for (int y = top; y <= bottom; ++y) {
      for (int x = left; x <= right; ++x) {
        const double u = ((x - cx) * c + (y - cy) * s) / size;
        const double v = ((y - cy) * c - (x - cx) * s) / (size * aspect);
        const double squared = u * u + v * v;
        const bool inside = kind == 0   ? squared < 1
                            : kind == 1 ? std::abs(u) < 1 && std::abs(v) < 1
                                        : squared < 1 && squared > 0.36;
        if (inside) t.texels[static_cast<size_t>(y) * t.width + x] = value;
      }
    }
  }
  return t;
}

uint8_t ToByte(double value) {
  return static_cast<uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

float PixelMean(const Texture& t, int x, int y) {
  float sum = 0;
  for (int j = 0; j < kFine; ++j) {
    for (int i = 0; i < kFine; ++i) sum += t.At(kFine * x + i, kFine * y + j);
  }
  return sum / (kFine * kFine);
}

double Gaussian(Random& random) {
  double sum = -6;
  for (int i = 0; i < 12; ++i) sum += random.Unit();
  return sum;
}

// Places the texture's part of each pixel; the rest of the pixel keeps what was there.
void Place(const Texture& t, const Truth& truth, int width, int height, std::vector<float>& scene) {
  const double c = std::cos(truth.angle * 0.017453292519943295) / truth.scale;
  const double s = std::sin(truth.angle * 0.017453292519943295) / truth.scale;
  const double reach = std::hypot(t.width, t.height) / kFine * truth.scale / 2 + 1;
  for (int y = static_cast<int>(truth.y - reach); y <= truth.y + reach; ++y) {
    for (int x = static_cast<int>(truth.x - reach); x <= truth.x + reach; ++x) {
      if (x < 0 || y < 0 || x >= width || y >= height) continue;
      float sum = 0;
      int hits = 0;
      for (int j = 0; j < kFine; ++j) {
        for (int i = 0; i < kFine; ++i) {
          const double dx = x + (i + 0.5) / kFine - 0.5 - truth.x;
          const double dy = y + (j + 0.5) / kFine - 0.5 - truth.y;
          const double u = (dx * c + dy * s) * kFine + t.width * 0.5;
          const double v = (dy * c - dx * s) * kFine + t.height * 0.5;
          if (u < 0 || v < 0 || u >= t.width || v >= t.height) continue;
          sum += t.At(static_cast<int>(u), static_cast<int>(v));
          ++hits;
        }
      }
      float& pixel = scene[static_cast<size_t>(y) * width + x];
      constexpr float kAll = kFine * kFine;
      pixel = (sum + pixel * (kAll - static_cast<float>(hits))) / kAll;
    }
  }
}

}  // namespace

std::vector<Truth> MakeScene(const SceneSpec& spec, GreyImage& pattern, GreyImage& scene) {
  Random random(spec.seed);
  for (int i = 0; i < 8; ++i) random.Next();
  const Texture texture = MakeTexture(spec.templateWidth, spec.templateHeight, 24, random);
  pattern.Create(spec.templateWidth, spec.templateHeight);
  for (int y = 0; y < pattern.height; ++y) {
    for (int x = 0; x < pattern.width; ++x) pattern.rows[y][x] = ToByte(PixelMean(texture, x, y));
  }

  std::vector<float> pixels(static_cast<size_t>(spec.width) * spec.height);
  const Texture ground = MakeTexture(spec.width / kFine + 1, spec.height / kFine + 1, 300, random);
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      pixels[static_cast<size_t>(y) * spec.width + x] = ground.At(x, y);
    }
  }

  std::vector<Truth> truths;
  const double diagonal = std::hypot(spec.templateWidth, spec.templateHeight);
  for (int tries = 0; tries < 20000 && static_cast<int>(truths.size()) < spec.instances; ++tries) {
    Truth truth = {0, 0, spec.angleMin + random.Unit() * (spec.angleMax - spec.angleMin),
                   spec.scaleMin + random.Unit() * (spec.scaleMax - spec.scaleMin)};
    const double reach = diagonal * truth.scale * 0.5 + 1;
    truth.x = reach + random.Unit() * (spec.width - 1 - 2 * reach);
    truth.y = reach + random.Unit() * (spec.height - 1 - 2 * reach);
    // Whole texels: where nothing is turned or scaled, a finer position would not be drawn.
    truth.x = std::round(truth.x * kFine) / kFine;
    truth.y = std::round(truth.y * kFine) / kFine;
    if (spec.wholePixels) {
      truth.x = std::floor(truth.x) + (spec.templateWidth - 1) % 2 * 0.5;
      truth.y = std::floor(truth.y) + (spec.templateHeight - 1) % 2 * 0.5;
    }
    const bool free = std::all_of(truths.begin(), truths.end(), [&](const Truth& other) {
      return std::hypot(other.x - truth.x, other.y - truth.y) >
             diagonal * (truth.scale + other.scale) * 0.5;
    });
    if (free) truths.push_back(truth);
  }
  for (const Truth& truth : truths) Place(texture, truth, spec.width, spec.height, pixels);

  scene.Create(spec.width, spec.height);
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      const double pixel = pixels[static_cast<size_t>(y) * spec.width + x];
      const double noise = spec.noise > 0 ? spec.noise * Gaussian(random) : 0;
      scene.rows[y][x] = ToByte(128 + spec.gain * (pixel - 128) + noise);
    }
  }
  return truths;
}

void Colourise(const GreyImage& grey, ColourImage& colour) {
  colour.Create(grey.width, grey.height);
  for (int y = 0; y < grey.height; ++y) {
    for (int x = 0; x < grey.width; ++x) {
      const int v = grey.rows[y][x];
      colour.rows[y][3 * x] = static_cast<uint8_t>(v);
      colour.rows[y][3 * x + 1] = static_cast<uint8_t>(255 - v);
      colour.rows[y][3 * x + 2] = static_cast<uint8_t>(64 + v / 2);
    }
  }
}

}  // namespace quillon::test
