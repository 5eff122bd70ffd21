// Golden digests: one line per operation, content and size with a digest of the whole result, made
// by the plain forms that the tests compare with. Whatever computes through the exports - another
// compiler, system or instruction set - must come to the same lines. The list of operations behind
// the lines, each an export beside its plain form, also serves a test of its own: every operation
// at every instruction-set level, on images of every width (levels_test.cpp).
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "support/images.h"

namespace quillon::test::golden {

// FNV-1a over everything that is added, 64 bits.
class Digest {
 public:
  // With a store, what is added is kept there as well, so that a difference can be looked up.
  explicit Digest(std::vector<uint8_t>* kept = nullptr) : kept_(kept) {}
  void Add(const void* bytes, size_t count) {
    const auto* first = static_cast<const uint8_t*>(bytes);
    if (kept_) kept_->insert(kept_->end(), first, first + count);
    for (const auto* p = static_cast<const uint8_t*>(bytes); count > 0; --count) {
      state_ = (state_ ^ *p++) * 0x100000001B3u;
    }
  }
  // A number with all its bits; of what is not a number, only that.
  template <class Number>
  requires std::is_arithmetic_v<Number>
  void Add(Number number) {
    if constexpr (std::is_floating_point_v<Number>) {
      if (std::isnan(number)) number = static_cast<Number>(0.123456789);
    }
    Add(&number, sizeof number);
  }
  template <class Numbers>
  void AddAll(const Numbers& numbers) {
    for (const auto number : numbers) Add(number);
  }

  // Size, depth and pixels; with `padding`, every byte of the store.
  template <class Pixel>
  void AddPixels(const CImage<Pixel>& image, bool padding = false) {
    for (int value : {image.width, image.height, image.bpp}) Add(value);
    const int used = padding ? image.stride : image.width * static_cast<int>(sizeof(Pixel));
    for (int y = 0; image.bits && y < image.height; ++y) {
      Add(image.rows[y], static_cast<size_t>(used));
    }
  }
  template <class Pixel>
  void AddStore(const CImage<Pixel>& image) {
    AddPixels(image, true);
  }

  void Add(const char* complaint) { Add(complaint, std::char_traits<char>::length(complaint)); }

  std::string Text() const;

 private:
  std::vector<uint8_t>* kept_;
  uint64_t state_ = 0xCBF29CE484222325u;
};

// What an operation is computed on: a picture, another of its size, and a coloured one.
struct Picture {
  GreyImage grey, second;
  ColourImage colour;
  uint32_t seed;  // for what else an operation draws

  void Draw(const Size& size, Content content);
};

using Compute = std::function<void(const Picture&, Digest&)>;

struct Operation {
  std::string name;  // the exports that it calls, and perhaps more
  Compute exported;
  Compute plain;
  bool everyPicture = true;  // else it brings its own, and has one line
};

// A computation without a plain form of the same last bits. Its line holds the numbers that the
// exports gave when the file was made, and how far others may lie from them.
struct Measurement {
  std::string name;
  double bound;
  std::function<std::vector<double>()> exported;
};

// The families, in the order of the file.
void AddPixelOperations(std::vector<Operation>& all);
void AddFilters(std::vector<Operation>& all);
void AddMorphology(std::vector<Operation>& all);
void AddBlobs(std::vector<Operation>& all);
void AddColourSpaces(std::vector<Operation>& all);
void AddCalibration(std::vector<Operation>& all);
void AddMatching(std::vector<Operation>& all);
std::vector<Operation> AllOperations();
std::vector<Measurement> Measurements();

// An export from one image into another and in place, against a plain form that re-creates its
// result. What the other image held before must not show.
template <class Export, class Plain>
Operation FromImageToImage(const std::string& name, Export exported, Plain plain) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            FillStale(image, picture.grey.width, picture.grey.height);
            exported(&picture.grey, &image);
            digest.AddStore(image);
            GreyImage other;
            FillStale(other, picture.grey.width + 5, 3);
            exported(&picture.grey, &other);
            if (Bytes(other) != Bytes(image)) digest.Add("another result where another was");
            image.CopyFrom(&picture.grey);
            exported(&image, &image);
            digest.AddPixels(image);
          },
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            plain(picture.grey, image);
            digest.AddStore(image);
            digest.AddPixels(image);
          }};
}

// The whole file: digests by the plain forms, measurements by the exports.
std::string MakeFile();

// What the exports compute, against the text of a file.
struct Comparison {
  size_t lines = 0;                      // of the file
  double farthest = 0;                   // of all measurements from their numbers
  std::vector<std::string> differences;  // what differs, is missing or is not known
};
Comparison CheckFile(const std::string& text);

}  // namespace quillon::test::golden
