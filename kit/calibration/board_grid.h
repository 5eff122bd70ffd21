// Points of a picture, put together to the grid of a board: by where the next one is expected from
// those before, and by whether it looks as it should.
#pragma once

#include <complex>
#include <vector>

#include "kit/geometry.h"

namespace quillon::kit {

// A point of a board and its place in the grid. Columns and rows begin at 0 with the outermost ones
// that were seen; columns run to the right, rows down, as far as the board's turn lets them.
struct BoardPoint {
  Point at;
  int column, row;
};

// Inner corners, or dots, a side; which side is which does not matter.
struct BoardSize {
  int columns, rows;
};

constexpr int kMostCorners = 1000;  // a side
constexpr BoardSize kAnyBoard = {kMostCorners, kMostCorners};

// What may be a point of a board. Of neighbours in a row the patterns are opposite; 0: all look the
// same.
struct BoardCandidate {
  Point at;
  std::complex<double> pattern = 0;
};

// The largest grid of the candidates, the likeliest first, that is part of such a board, in the
// order of rows; empty where there are not 9 of them.
std::vector<BoardPoint> LargestGrid(const std::vector<BoardCandidate>& candidates, BoardSize size);

}  // namespace quillon::kit
