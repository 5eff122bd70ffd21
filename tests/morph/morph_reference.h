// The morphology pass by pass, as its rules are stated: every pass goes over the whole image, row
// by row, and writes each row one row late. The library makes none of these passes.
#pragma once

#include <algorithm>
#include <vector>

#include "morph/morph.h"

namespace quillon::test::reference {

enum class Operation { kDilate, kErode, kOpen, kClose, kGradient, kWhiteTopHat, kBlackTopHat };

using Row = std::vector<uint8_t>;

class Passes {
 public:
  explicit Passes(Extreme extreme) : extreme_(extreme) {}

  void Horizontal(const GreyImage& source, GreyImage& result) const {
    Start(source, result);
    Row late;
    for (int y = 0; y < source.height; ++y) {
      const Row row = Inner(source, [&](int x) {
        return Of(source.rows[y][x - 1], Of(source.rows[y][x], source.rows[y][x + 1]));
      });
      if (y >= 1) Put(result, y - 1, late);
      late = row;
    }
  }

  void Vertical(const GreyImage& source, GreyImage& result) const {
    Start(source, result);
    Row late;
    for (int y = 1; y <= source.height - 2; ++y) {
      Row row(static_cast<size_t>(source.width));
      for (int x = 0; x < source.width; ++x) {
        row[static_cast<size_t>(x)] =
            Of(source.rows[y - 1][x], Of(source.rows[y][x], source.rows[y + 1][x]));
      }
      if (y >= 2) Put(result, y - 1, late);
      late = row;
    }
    CopyOuterRows(result);
  }

  void Cross(const GreyImage& source, GreyImage& result) const {
    Start(source, result);
    Row late;
    for (int y = 1; y <= source.height - 2; ++y) {
      const Row row = Inner(source, [&](int x) {
        const uint8_t along =
            Of(source.rows[y][x - 1], Of(source.rows[y][x], source.rows[y][x + 1]));
        return Of(along, Of(source.rows[y - 1][x], source.rows[y + 1][x]));
      });
      if (y >= 2) Put(result, y - 1, late);
      late = row;
    }
    CopyOuterRows(result);
  }

  void Chain(const GreyImage& source, GreyImage& result, const Element& element) const {
    const bool isInPlace = &source == &result;
    if (element.shape == Shape::kRectangle) {
      if (!isInPlace) Horizontal(source, result);
      for (int i = isInPlace ? 0 : 1; i < element.horizontalPasses; ++i) Horizontal(result, result);
      for (int i = 0; i < element.verticalPasses; ++i) Vertical(result, result);
      return;
    }
    if (!isInPlace) Cross(source, result);
    for (int i = isInPlace ? 0 : 1; i < element.passes; ++i) {
      if (element.shape == Shape::kCircle && i % 2 == 1) {
        Vertical(result, result);
        Horizontal(result, result);
      } else {
        Cross(result, result);
      }
    }
  }

 private:
  uint8_t Of(uint8_t a, uint8_t b) const {
    return extreme_ == Extreme::kMaximum ? std::max(a, b) : std::min(a, b);
  }

  static void Start(const GreyImage& source, GreyImage& result) {
    if (&source != &result) result.Create(source.width, source.height);
  }

  template <class Rule>
  static Row Inner(const GreyImage& source, const Rule& rule) {
    Row row(static_cast<size_t>(source.width));
    for (int x = 1; x <= source.width - 2; ++x) row[static_cast<size_t>(x)] = rule(x);
    row.front() = row[1];
    row.back() = row[row.size() - 2];
    return row;
  }

  static void Put(GreyImage& image, int y, const Row& row) {
    std::copy(row.begin(), row.end(), image.rows[y]);
  }

  static void CopyOuterRows(GreyImage& image) {
    std::copy_n(image.rows[1], image.width, image.rows[0]);
    std::copy_n(image.rows[image.height - 2], image.width, image.rows[image.height - 1]);
  }

  const Extreme extreme_;
};

inline const Passes kDilation(Extreme::kMaximum), kErosion(Extreme::kMinimum);

inline void SubtractInPlace(GreyImage& a, const GreyImage& b) {
  for (int y = 0; y < a.height; ++y) {
    for (int x = 0; x < a.width; ++x) {
      uint8_t& value = a.rows[y][x];
      const bool inBlock = x < a.width / 8 * 8;
      if (value < b.rows[y][x]) {
        value = 0;
      } else if (inBlock) {
        value = static_cast<uint8_t>(value - b.rows[y][x]);
      }
    }
  }
}

inline void OpenOrClose(const Passes& first, const Passes& second, GreyImage& source,
                        GreyImage& result, const Element& element) {
  if (element.shape == Shape::kRectangle) {
    first.Chain(source, result, element);
    second.Chain(result, result, element);
  } else {
    if (result.bits && result.width >= 3 && result.height >= 3) {
      first.Chain(result, result, element);
    }
    second.Chain(source, result, element);
  }
}

// Runs the operation on images of at least 3 x 3 pixels, which may be one image.
inline void Apply(Operation operation, GreyImage& source, GreyImage& result,
                  const Element& element) {
  const bool isInPlace = &source == &result;
  GreyImage temporary;
  GreyImage& other = isInPlace ? temporary : result;
  switch (operation) {
    case Operation::kDilate:
      return kDilation.Chain(source, result, element);
    case Operation::kErode:
      return kErosion.Chain(source, result, element);
    case Operation::kOpen:
      return OpenOrClose(kErosion, kDilation, source, result, element);
    case Operation::kClose:
      return OpenOrClose(kDilation, kErosion, source, result, element);
    case Operation::kGradient:
      kErosion.Chain(source, other, element);
      kDilation.Chain(source, source, element);
      SubtractInPlace(source, other);
      if (!isInPlace) result.CopyFrom(&source);
      return;
    case Operation::kWhiteTopHat:
      kErosion.Chain(source, other, element);
      kDilation.Chain(other, other, element);
      SubtractInPlace(source, other);
      if (!isInPlace) result.CopyFrom(&source);
      return;
    case Operation::kBlackTopHat:
      kDilation.Chain(source, other, element);
      kErosion.Chain(other, other, element);
      SubtractInPlace(other, source);
      if (isInPlace) source.CopyFrom(&other);
      return;
  }
}

}  // namespace quillon::test::reference
