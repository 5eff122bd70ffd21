// A fuzzer's bytes, taken apart into what exports are called with. Images stay small, so that an
// input takes well below a millisecond; numbers go to every extreme.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "quillon/image.h"

namespace quillon::fuzz {

// Says which promise was broken, and stops: the fuzzer keeps the input.
inline void Require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

class Input {
 public:
  Input(const uint8_t* bytes, size_t size) : at_(bytes), end_(bytes + size) {}

  bool Ended() const { return at_ == end_; }
  uint8_t Byte() { return Ended() ? uint8_t{0} : *at_++; }
  // A number of 0 ... count - 1.
  int Choice(int count) { return Byte() % count; }

  template <class Value>
  Value Raw() {
    Value value = {};
    for (size_t i = 0; i < sizeof value; ++i) reinterpret_cast<uint8_t*>(&value)[i] = Byte();
    return value;
  }

  // Mostly small, now and then at an extreme, now and then anything.
  int Int() {
    const int kind = Byte();
    if (kind < 200) return kind - 100;
    constexpr int kExtremes[] = {INT_MIN, INT_MIN + 1, INT_MAX, INT_MAX - 1, 0,   -1,
                                 256,     -256,        1 << 16, -(1 << 16),  255, 1 << 30};
    if (kind < 224) return kExtremes[kind % 12];
    return kind < 240 ? Raw<int16_t>() : Raw<int32_t>();
  }

  double Double() {
    const int kind = Byte();
    if (kind < 120) return (kind - 20) / 10.0;
    using Limits = std::numeric_limits<double>;
    constexpr double kExtremes[] = {Limits::infinity(),
                                    -Limits::infinity(),
                                    Limits::quiet_NaN(),
                                    Limits::max(),
                                    -Limits::max(),
                                    Limits::denorm_min(),
                                    Limits::min(),
                                    -0.0,
                                    1e18,
                                    -1e18,
                                    0.5,
                                    1e-9};
    if (kind < 160) return kExtremes[kind % 12];
    return kind < 220 ? Raw<int16_t>() / 16.0 : Raw<double>();
  }

  // 1 ... 64 mostly; sometimes long and thin, or a single row or column.
  template <class Pixel>
  void Image(CImage<Pixel>& image, int most = 64) {
    int width = 1 + Choice(most), height = 1 + Choice(most);
    const int shape = Choice(16);
    if (shape == 0) width *= 5, height = 1 + height % 4;
    if (shape == 1) height *= 5, width = 1 + width % 4;
    image.Create(width, height);
    Fill(image);
  }

  // Noise, few values, flat ground with marks, or the bytes that are left.
  template <class Pixel>
  void Fill(CImage<Pixel>& image) {
    const int kind = Choice(4);
    uint32_t state = Raw<uint16_t>() * 2654435761u + 1;
    for (int i = 0; i < image.imageSize; ++i) {
      state = state * 1664525u + 1013904223u;
      const auto random = static_cast<uint8_t>(state >> 24);
      image.bits[i] = kind == 0   ? random
                      : kind == 1 ? static_cast<uint8_t>(random < 128 ? 0 : 255)
                      : kind == 2 ? static_cast<uint8_t>(random < 250 ? 90 : random)
                                  : Byte();
    }
  }

 private:
  const uint8_t *at_, *end_;
};

// What every image is after a call: without pixels, or a whole store with its rows.
template <class Pixel>
void RequireSound(const CImage<Pixel>& image) {
  if (!image.bits) {
    return Require(!image.bitmap && !image.rows, "an image without pixels has no bitmap, no rows");
  }
  Require(image.width > 0 && image.height > 0 && image.stride % 4 == 0 &&
              image.stride * 8ll >= int64_t{image.width} * image.bpp &&
              image.imageSize == image.stride * image.height,
          "geometry follows the stride rule");
  for (int y = 0; y < image.height; ++y) {
    Require(image.rows[y] == image.bits + (image.height - 1 - y) * ptrdiff_t{image.stride},
            "rows lie bottom up in the store");
  }
}

// The bytes of an image that a call may only read.
template <class Pixel>
class ReadOnly {
 public:
  explicit ReadOnly(const CImage<Pixel>* image) : image_(image && image->bits ? image : nullptr) {
    if (image_) bytes_.assign(image_->bits, image_->bits + image_->imageSize);
  }
  void RequireUnchanged() const {
    if (!image_) return;
    Require(!std::memcmp(image_->bits, bytes_.data(), bytes_.size()),
            "what is only read stays as it is");
  }

 private:
  const CImage<Pixel>* image_;
  std::vector<uint8_t> bytes_;
};

// What run.cpp hands each input to; defined by the fuzzers that it is built into.
void Run(Input& input);

}  // namespace quillon::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);
