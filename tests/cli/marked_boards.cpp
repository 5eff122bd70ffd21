#include "cli/marked_boards.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace quillon::test {
namespace {

double Overlap(const kit::Defect& d, const MarkBox& m) {
  const double width = std::min<double>(d.right + 1, m.right) - std::max<double>(d.left, m.left);
  const double height = std::min<double>(d.bottom + 1, m.bottom) - std::max<double>(d.top, m.top);
  if (width <= 0 || height <= 0) return 0;
  const double both = width * height;
  const double ofDefect = (d.right + 1.0 - d.left) * (d.bottom + 1.0 - d.top);
  const double ofMark = (m.right - m.left) * (m.bottom - m.top);
  return both / (ofDefect + ofMark - both);
}

}  // namespace

std::vector<MarkedPair> ReadMarkedPairs(const std::string& folder) {
  namespace fs = std::filesystem;
  std::vector<MarkedPair> pairs;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().extension() != ".txt") continue;
    const std::string name = entry.path().stem().string();
    const std::string base = (entry.path().parent_path() / name).string();
    MarkedPair pair = {name, base + "_temp.jpg", base + "_test.jpg", {}};
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) {
      std::istringstream numbers(line);
      MarkBox mark = {};
      if (numbers >> mark.left >> mark.top >> mark.right >> mark.bottom) pair.marks.push_back(mark);
    }
    pairs.push_back(std::move(pair));
  }
  std::sort(pairs.begin(), pairs.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  return pairs;
}

DetectionCount& DetectionCount::operator+=(const DetectionCount& other) {
  marks += other.marks;
  found += other.found;
  right += other.right;
  return *this;
}

DetectionCount Judge(std::span<const kit::Defect> defects, std::span<const MarkBox> marks) {
  constexpr double kLeastOverlap = 0.33;
  struct Candidate {
    double overlap;
    size_t defect, mark;
  };
  std::vector<Candidate> candidates;
  for (size_t d = 0; d < defects.size(); ++d) {
    for (size_t m = 0; m < marks.size(); ++m) {
      const double overlap = Overlap(defects[d], marks[m]);
      if (overlap > kLeastOverlap) candidates.push_back({overlap, d, m});
    }
  }
  // The best overlaps first.
  std::sort(candidates.begin(), candidates.end(),
            [](const auto& a, const auto& b) { return a.overlap > b.overlap; });
  std::vector<bool> usedDefects(defects.size()), usedMarks(marks.size());
  DetectionCount count = {static_cast<int>(marks.size()), static_cast<int>(defects.size()), 0};
  for (const Candidate& c : candidates) {
    if (usedDefects[c.defect] || usedMarks[c.mark]) continue;
    usedDefects[c.defect] = usedMarks[c.mark] = true;
    ++count.right;
  }
  return count;
}

}  // namespace quillon::test
