// The inner corners of a chessboard in a picture: partly seen, turned, under uneven light.
//
// Corners are saddles of the smoothed picture. Around each the grey values are bright twice and
// dark twice, and from one corner to the next in its row they change places: so corners are put
// together to a grid by where the next one is expected and by which way it is bright. Places are
// refined as where the gradients around point past the corner at right angles (Foerstner and
// Guelch, "A fast operator for detection and precise location of distinct points", 1987).
#pragma once

#include <vector>

#include "kit/geometry.h"
#include "quillon/image.h"

namespace quillon::kit {

// A corner and its place in the grid. Columns and rows begin at 0 with the outermost ones that were
// seen; columns run to the right, rows down, as far as the board's turn lets them.
struct BoardPoint {
  Point at;
  int column, row;
};

// Inner corners a side; which side is which does not matter.
struct BoardSize {
  int columns, rows;
};

constexpr int kMostCorners = 1000;  // a side
constexpr BoardSize kAnyBoard = {kMostCorners, kMostCorners};

// The largest grid of corners in the picture that is part of such a board, in the order of rows;
// empty where there are not 9 of them.
std::vector<BoardPoint> FindChessboard(const GreyImage& image, BoardSize size);

}  // namespace quillon::kit
