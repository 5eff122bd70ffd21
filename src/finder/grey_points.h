// A template's grey values as fits read them: column by column, cell by cell, with what a fit needs
// of each cell computed when the template is taught.
#pragma once

#include <cmath>

#include "finder/finder_kernels.h"
#include "finder/list.h"

namespace quillon::finder {

// The template is cut into cells, each correlated on its own: light may change over the template,
// and what covers a part of it takes no more than that part's share from the score.
constexpr int kMostCells = 6;  // a side
constexpr int kRatedCell = 8;  // pixels a side, at least, of a cell at full resolution

struct CellGrid {
  int across = 1, down = 1;
  double left = 0, top = 0, perU = 1, perV = 1;

  CellGrid() = default;
  CellGrid(double width, double height, int columns, int rows)
      : across(columns),
        down(rows),
        left(-width / 2),
        top(-height / 2),
        perU(across / width),
        perV(down / height) {}
  // Cells of at least `side` pixels a side.
  static CellGrid Of(double width, double height, double side) {
    const auto cells = [side](double length) {
      return std::clamp(static_cast<int>(length / side), 1, kMostCells);
    };
    return {width, height, cells(width), cells(height)};
  }
  int Count() const { return across * down; }
  // Of a place from the template's centre.
  int At(double u, double v) const {
    const int x = std::clamp(static_cast<int>((u - left) * perU), 0, across - 1);
    const int y = std::clamp(static_cast<int>((v - top) * perV), 0, down - 1);
    return y * across + x;
  }
};

class LevelMask;

// What a fit solves for, in the order of its terms: gain and offset of the grey values, the
// template's move to the right and down, its turn and its growth.
constexpr int kFitTerms = 6;

// Terms have about the same size, so that the equations are well conditioned: values count from a
// middle grey, turn and growth in pixels at the template's farthest point.
constexpr float kMiddleGrey = 128;
constexpr double kPerGain = 1.0 / 16, kPerOffset = 8;

inline void TermsOf(double u, double v, double value, double slopeU, double slopeV, double radius,
                    double (&terms)[kFitTerms]) {
  terms[0] = value * kPerGain;
  terms[1] = kPerOffset;
  terms[2] = slopeU;
  terms[3] = slopeV;
  terms[4] = (u * slopeV - v * slopeU) / radius;
  terms[5] = (u * slopeU + v * slopeV) / radius;
}

// Sums of products of terms: the upper triangle, row by row.
struct TermProducts {
  double sum[kFitTerms * (kFitTerms + 1) / 2] = {};

  static constexpr int At(int row, int column) {  // row <= column
    return row * kFitTerms - row * (row + 1) / 2 + column;
  }
  void Add(const double (&terms)[kFitTerms]) {
    double* to = sum;
    for (int i = 0; i < kFitTerms; ++i) {
      for (int j = i; j < kFitTerms; ++j) *to++ += terms[i] * terms[j];
    }
  }
  // Of the template's values, from the middle grey: how many, their sum and that of their squares.
  double Count() const { return sum[At(1, 1)] / (kPerOffset * kPerOffset); }
  double Sum() const { return sum[1] / (kPerGain * kPerOffset); }
  double Squares() const { return sum[0] / (kPerGain * kPerGain); }
  // Deviation times number.
  double Contrast() const { return std::sqrt(std::max(0.0, Squares() * Count() - Sum() * Sum())); }
};

inline int RoundUpToBlock(int count) {
  return (count + kPointBlock - 1) / kPointBlock * kPointBlock;
}

class GreyPoints {
 public:
  // How many there are in a cell, and from which on. Points are padded to whole blocks.
  struct Cell {
    int begin = 0, count = 0;
    TermProducts products;
    double contrast = 0;
  };

  int Count() const { return count_; }
  int Size() const { return size_; }  // with padding
  const CellGrid& Grid() const { return grid_; }
  const Cell& CellAt(int i) const { return cells_[i]; }
  double Radius() const { return radius_; }
  double HalfWidth() const { return halfWidth_; }
  double HalfHeight() const { return halfHeight_; }
  FitColumns Columns(int from) const {
    const float* u = columns_.data() + from;
    return {u, u + size_, u + 2 * ptrdiff_t{size_}, u + 3 * ptrdiff_t{size_},
            u + 4 * ptrdiff_t{size_}};
  }

  // Of a level's pixels, whose template has its centre at (centreX, centreY): all of them, or
  // points on a grid that are a little farther apart than `step`, in cells of at least `side` of
  // these. False when memory is short.
  bool Make(const uint8_t* pixels, ptrdiff_t stride, const LevelMask& mask, double centreX,
            double centreY, int step, int side);

 private:
  CellGrid grid_;
  int count_ = 0, size_ = 0;
  double radius_ = 1, halfWidth_ = 0, halfHeight_ = 0;
  List<Cell> cells_;
  Buffer<float> columns_;
};

}  // namespace quillon::finder
