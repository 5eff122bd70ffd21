// The kernels that find a blob's hull and the rectangle around it.
#pragma once

#include <stdint.h>

#include "blob/hull.h"
#include "simd/families.h"

namespace quillon {

// One side of a blob as FindBends takes it: where each row ends, in columns from any one, growing
// inwards. The memory goes on for kSideMargin entries before the first row and for kSideRoom behind
// the last one.
constexpr int kSideMargin = 8;
constexpr int kSideRoom = 24;
constexpr int kMostColumns = 511;  // the greatest entry; the least is -511
// Rows to a word that FindBends writes, two bits each.
constexpr int kRowsToWord = 32;
constexpr int WordsOfBends(int rows) { return (rows + kRowsToWord - 1) / kRowsToWord; }

// Hulls that FindLeastSide takes have up to kMostSides vertices, for its time grows with their
// square; all less than kReachEnd columns and rows from the first one, so that their differences
// fit 16 bits; and that one less than kPlaceEnd from the image's corner, as float numbers are whole
// there.
constexpr int kMostSides = 64;
constexpr int kReachEnd = 1 << 13;
constexpr int kPlaceEnd = 1 << 23;

// The rectangle along one side of a hull.
struct SideBox {
  int side;              // from vertex `side` to the next one
  float alongX, alongY;  // of length 1
  float length, depth;   // along the side, and across it
  int32_t backX, backY;  // from the side's start to the vertex farthest against it
};

struct HullKernels {
  // Which rows below the first may be vertices of the side's convex hull, row r in bit
  // 2 * (r mod 32) of word r / 32: all that are, and of the others those that no two rows within
  // four of them rule out. Overwrites the margins.
  void (*FindBends)(int16_t* side, int rows, uint64_t* words);
  // The rectangle of least area along a side of the hull; of equal ones, the last side's. False for
  // hulls beyond these limits. Overwrites kHullRoom entries behind the vertices.
  bool (*FindLeastSide)(Point* hull, int count, SideBox& box);
};

}  // namespace quillon
