// Pairs of board pictures whose defects people have marked, and how well an inspection finds them.
//
// A folder holds NAME_temp.jpg, the good board, NAME_test.jpg, the tested one, and NAME.txt with a
// line for each mark: x1 y1 x2 y2 type.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "kit/boards/board_inspector.h"

namespace quillon::test {

struct MarkBox {
  double left, top, right, bottom;
};

struct MarkedPair {
  std::string name, good, tested;  // files
  std::vector<MarkBox> marks;
};

// In the order of names; none where there is no such folder.
std::vector<MarkedPair> ReadMarkedPairs(const std::string& folder);

// A detection is right when its box overlaps a mark by more than 0.33 of their union; one
// detection a mark.
struct DetectionCount {
  int marks = 0, found = 0, right = 0;

  int False() const { return found - right; }
  double Precision() const { return found > 0 ? static_cast<double>(right) / found : 1; }
  double Recall() const { return marks > 0 ? static_cast<double>(right) / marks : 1; }
  double F() const { return marks + found > 0 ? 2.0 * right / (marks + found) : 1; }
  DetectionCount& operator+=(const DetectionCount& other);
};

DetectionCount Judge(std::span<const kit::Defect> defects, std::span<const MarkBox> marks);

}  // namespace quillon::test
