#include <gtest/gtest.h>

#include "blob/runs_kernels.h"
#include "support/levels.h"

namespace quillon::test {
namespace reference {

std::vector<int> Edges(const uint8_t* row, int count, uint8_t first, uint8_t span) {
  std::vector<int> edges;
  bool inside = false;
  for (int x = 0; x <= count; ++x) {
    const bool now = x < count && static_cast<uint8_t>(row[x] - first) <= span;
    if (now != inside) edges.push_back(x);
    inside = now;
  }
  return edges;
}

}  // namespace reference

// Rows end where their memory ends, so that a read behind them shows under the sanitizer.
TEST(FindRuns, EdgesAreThoseOfThePixelByPixelWalk) {
  constexpr struct {
    uint8_t first, span;
  } kBands[] = {{0, 255}, {128, 127}, {0, 0}, {255, 0}, {255, 254}, {100, 100}, {200, 100}};
  constexpr int kCanary = -99;
  ForEachLevel([&](const Kernels& level) {
    Random random(3);
    for (int count = 1; count <= 260; ++count) {
      for (int content = 0; content < 4; ++content) {
        std::vector<uint8_t> row(static_cast<size_t>(count));
        for (uint8_t& pixel : row) {
          const uint8_t noise = static_cast<uint8_t>(random.Next() >> 24);
          pixel = content == 0   ? noise
                  : content == 1 ? noise & 128
                  : content == 2 ? 255
                                 : noise < 8;
        }
        for (const auto& band : kBands) {
          std::vector<int32_t> edges(static_cast<size_t>(count) + 2, kCanary);
          const int runs =
              level.runs.FindRuns(row.data(), count, band.first, band.span, edges.data());
          const auto expected = reference::Edges(row.data(), count, band.first, band.span);
          ASSERT_EQ(2 * runs, static_cast<int>(expected.size())) << "count " << count;
          ASSERT_EQ(edges.back(), kCanary);
          edges.resize(expected.size());
          ASSERT_EQ(edges, expected) << "count " << count;
        }
      }
    }
  });
}

TEST(SumsOfRows, AreThoseOfEveryPixelOfAChannel) {
  ForEachLevel([&](const Kernels& level) {
    Random random(5);
    uint32_t grey = 0, colour[3] = {};
    ChannelSum greySum = {}, colourSums[3] = {};
    const auto total = [](const ChannelSum& sum) {
      uint64_t all = 0;
      for (const uint64_t lane : sum.lanes) all += lane;
      return all;
    };
    for (int count = 0; count <= 400; ++count) {
      std::vector<uint8_t> row(static_cast<size_t>(3 * count));
      for (size_t i = 0; i < row.size(); ++i) {
        row[i] = count % 2 == 0 ? 255 : static_cast<uint8_t>(random.Next() >> 24);
        colour[i % 3] += row[i];
        grey += row[i];
      }
      level.runs.AddRow(row.data(), 3 * count, greySum);
      level.runs.AddColourRow(row.data(), count, colourSums);
      ASSERT_EQ(total(greySum), grey) << "count " << 3 * count;
      for (int c = 0; c < 3; ++c) ASSERT_EQ(total(colourSums[c]), colour[c]) << "count " << count;
    }
  });
}

}  // namespace quillon::test
