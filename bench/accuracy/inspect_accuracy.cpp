// How well inspection finds marked defects: a table of the pairs in a folder, the same after the
// tested pictures were disturbed, and how many pairs a second are inspected.
//
//   quillon_inspect_accuracy FOLDER... [--disturbed] [--speed]
//
// A third of the pairs of each folder, chosen by a hash of their names, is held out: nobody looks
// at what goes wrong there when inspection is worked on, so their figures are what to expect of
// others.
//
// Exit code 1 when there are no pairs, or F is below 0.95.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>

#include "cli/marked_boards.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "quillon/quillon.h"

namespace quillon::test {
namespace {

constexpr double kLeastF = 0.95;

struct Pair {
  MarkedPair marked;
  bool heldOut;
  GreyImage good, tested;
};
using Pairs = std::vector<std::unique_ptr<Pair>>;

// Fowler, Noll and Vo's hash, the same everywhere.
uint32_t Hash(const std::string& name) {
  uint32_t hash = 2166136261;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619;
  return hash;
}

void Decode(const std::string& folder, Pairs& pairs) {
  constexpr size_t kHeldOut = 3;  // the first of every three in the order of hashes
  std::vector<MarkedPair> ofFolder = ReadMarkedPairs(folder);
  std::vector<uint32_t> hashes;
  for (const MarkedPair& marked : ofFolder) hashes.push_back(Hash(marked.name));
  std::sort(hashes.begin(), hashes.end());
  for (MarkedPair& marked : ofFolder) {
    auto pair = std::make_unique<Pair>();
    const auto at = std::lower_bound(hashes.begin(), hashes.end(), Hash(marked.name));
    pair->heldOut = static_cast<size_t>(at - hashes.begin()) % kHeldOut == 0;
    kit::ReadImage(marked.good, pair->good);
    kit::ReadImage(marked.tested, pair->tested);
    pair->marked = std::move(marked);
    pairs.push_back(std::move(pair));
  }
}

DetectionCount Inspect(const GreyImage& good, const GreyImage& tested,
                       const std::vector<MarkBox>& marks) {
  kit::BoardInspector inspector;
  inspector.Teach(good);
  return Judge(inspector.Inspect(tested).defects, marks);
}

void PrintTotal(const char* name, const DetectionCount& total) {
  std::printf("%-28s %6d %6d %6d %6d    precision %.3f  recall %.3f  F %.3f\n", name, total.marks,
              total.found, total.right, total.False(), total.Precision(), total.Recall(),
              total.F());
}

DetectionCount PrintTable(const Pairs& pairs) {
  std::printf("%-28s %6s %6s %6s %6s\n", "pair", "marks", "found", "right", "false");
  DetectionCount total, heldOut, others;
  for (const auto& entry : pairs) {
    const Pair& pair = *entry;
    const DetectionCount count = Inspect(pair.good, pair.tested, pair.marked.marks);
    std::printf("%-28s %6d %6d %6d %6d\n", pair.marked.name.c_str(), count.marks, count.found,
                count.right, count.False());
    total += count;
    (pair.heldOut ? heldOut : others) += count;
  }
  PrintTotal("held out", heldOut);
  PrintTotal("others", others);
  PrintTotal("all", total);
  return total;
}

// ---- disturbances -------------------------------------------------------------------------------

// The place of a disturbed picture comes from (x, y) = A (x, y) + (dx, dy), about the middle, in
// the original, and its brightness is gain * original + offset + noise.
struct Disturbance {
  const char* name;
  double xx = 1, xy = 0, yx = 0, yy = 1, dx = 0, dy = 0;
  double gain = 1, offset = 0, noise = 0;
  double wobble = 0;  // how far lines are pushed to and fro, as by a stuttering scanner
  bool mirror = false, flip = false, invert = false;  // of both pictures
};

double Bilinear(const GreyImage& image, double x, double y) {
  x = std::clamp(x, 0.0, image.width - 1.0);
  y = std::clamp(y, 0.0, image.height - 1.0);
  const int left = std::min(static_cast<int>(x), image.width - 2);
  const int top = std::min(static_cast<int>(y), image.height - 2);
  const double u = x - left, v = y - top;
  const unsigned char* a = image.rows[top] + left;
  const unsigned char* b = image.rows[top + 1] + left;
  return (1 - v) * ((1 - u) * a[0] + u * a[1]) + v * ((1 - u) * b[0] + u * b[1]);
}

void Disturb(const Disturbance& d, const GreyImage& from, bool tested, GreyImage& to) {
  std::mt19937 random(12345);
  std::normal_distribution<double> noise(0, 1);
  to.Create(from.width, from.height);
  const double cx = (from.width - 1) / 2.0, cy = (from.height - 1) / 2.0;
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      double px = (d.mirror ? -1 : 1) * (x - cx), py = (d.flip ? -1 : 1) * (y - cy), value;
      if (tested) {
        constexpr double kPeriod = 100;
        px += d.wobble * std::sin(6.2831853 * y / kPeriod);
        py += d.wobble * std::cos(6.2831853 * x / kPeriod);
        value =
            Bilinear(from, cx + d.xx * px + d.xy * py + d.dx, cy + d.yx * px + d.yy * py + d.dy);
        value = d.gain * value + d.offset + d.noise * noise(random);
      } else {
        value = Bilinear(from, cx + px, cy + py);
      }
      if (d.invert) value = 255 - value;
      to.rows[y][x] = static_cast<unsigned char>(std::clamp(value, 0.0, 255.0));
    }
  }
}

// Where the middle of a mark goes, its size kept.
MarkBox Moved(const Disturbance& d, const MarkBox& m, const GreyImage& image) {
  const double cx = (image.width - 1) / 2.0, cy = (image.height - 1) / 2.0;
  const double sx = (m.left + m.right) / 2 - cx - d.dx, sy = (m.top + m.bottom) / 2 - cy - d.dy;
  const double determinant = d.xx * d.yy - d.xy * d.yx;
  double x = (d.yy * sx - d.xy * sy) / determinant, y = (d.xx * sy - d.yx * sx) / determinant;
  x = cx + (d.mirror ? -x : x);
  y = cy + (d.flip ? -y : y);
  const double halfWidth = (m.right - m.left) / 2, halfHeight = (m.bottom - m.top) / 2;
  return {x - halfWidth, y - halfHeight, x + halfWidth, y + halfHeight};
}

Disturbance Turned(const char* name, double degrees) {
  const double radians = degrees * 3.14159265358979 / 180;
  return {.name = name,
          .xx = std::cos(radians),
          .xy = std::sin(radians),
          .yx = -std::sin(radians),
          .yy = std::cos(radians)};
}

bool PrintDisturbed(const Pairs& pairs) {
  const Disturbance disturbances[] = {
      {.name = "shifted by 5, -3", .dx = 5, .dy = -3},
      {.name = "shifted by -11.5, 8.5", .dx = -11.5, .dy = 8.5},
      {.name = "shifted by 20, 20", .dx = 20, .dy = 20},
      Turned("turned by 0.5 degrees", 0.5),
      Turned("turned by -1 degree", -1),
      {.name = "stretched by 1 %, -0.8 %", .xx = 1.01, .yy = 0.992},
      {.name = "sheared by 0.6 %", .xy = 0.006, .dx = 2},
      {.name = "gain 0.5, offset 60", .gain = 0.5, .offset = 60},
      {.name = "gain 0.25, offset 10", .gain = 0.25, .offset = 10},
      {.name = "noise of 20", .noise = 20},
      {.name = "gain 0.5, noise of 20", .gain = 0.5, .offset = 60, .noise = 20},
      {.name = "wobbling by 0.5", .wobble = 0.5},
      {.name = "wobbling by 1", .wobble = 1},
      {.name = "wobbling by 1.5", .wobble = 1.5},
      {.name = "mirrored", .mirror = true},
      {.name = "upside down", .flip = true},
      {.name = "bright for dark", .invert = true},
  };
  bool good = true;
  std::printf("\n%-28s %6s %6s %6s %6s\n", "tested pictures", "marks", "found", "right", "false");
  for (const Disturbance& d : disturbances) {
    DetectionCount total;
    int refused = 0;
    for (const auto& pair : pairs) {
      GreyImage goodImage, tested;
      Disturb(d, pair->good, false, goodImage);
      Disturb(d, pair->tested, true, tested);
      std::vector<MarkBox> marks;
      for (const MarkBox& m : pair->marked.marks) marks.push_back(Moved(d, m, tested));
      try {
        total += Inspect(goodImage, tested, marks);
      } catch (const kit::Failure&) {
        total += {static_cast<int>(marks.size()), 0, 0};
        ++refused;
      }
    }
    PrintTotal(d.name, total);
    if (refused > 0) std::printf("    %d pairs were not aligned\n", refused);
    good = good && total.F() >= kLeastF;
  }
  return good;
}

// ---- speed --------------------------------------------------------------------------------------

void PrintSpeed(const Pairs& pairs) {
  constexpr int kRounds = 9;
  kit::BoardInspector inspector;
  std::vector<double> seconds;
  for (int round = 0; round < kRounds; ++round) {
    const std::clock_t start = std::clock();
    for (const auto& pair : pairs) {
      inspector.Teach(pair->good);
      inspector.Inspect(pair->tested);
    }
    seconds.push_back(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
  }
  std::sort(seconds.begin(), seconds.end());
  const auto count = static_cast<double>(pairs.size());
  std::printf(
      "\nSpeed: decoded pictures in memory, one thread; for each pair the good board is learned "
      "and\n"
      "the tested one aligned, compared and boxed. Median of %d rounds over all pairs: %.0f pairs "
      "a\n"
      "second (best round %.0f).\n",
      kRounds, count / seconds[kRounds / 2], count / seconds[0]);
}

int Run(int argc, char** argv) {
  bool disturbed = false, speed = false;
  Pairs pairs;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--disturbed") == 0) {
      disturbed = true;
    } else if (std::strcmp(argv[i], "--speed") == 0) {
      speed = true;
    } else {
      Decode(argv[i], pairs);
    }
  }
  if (pairs.empty()) {
    std::fprintf(stderr, "there are no pairs NAME_temp.jpg, NAME_test.jpg, NAME.txt\n");
    return 1;
  }
  bool good = PrintTable(pairs).F() >= kLeastF;
  if (disturbed) good = PrintDisturbed(pairs) && good;
  if (speed) PrintSpeed(pairs);
  if (!good) std::fprintf(stderr, "F is below %.2f\n", kLeastF);
  return good ? 0 : 1;
}

}  // namespace
}  // namespace quillon::test

int main(int argc, char** argv) {
  try {
    return quillon::test::Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
