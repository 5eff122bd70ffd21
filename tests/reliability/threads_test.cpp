// Calls on different objects from different threads at once give what they give one after another.
#include <gtest/gtest.h>

#include <thread>

#include "reliability/case.h"

namespace quillon::test {
namespace {

// What can be seen of some hundreds of calls of one family.
std::vector<uint64_t> RunFamily(const Family& family) {
  constexpr size_t kCalls = 40;  // of each export
  Stage stage;
  std::vector<uint64_t> digests;
  for (const Export& row : family.exports) {
    const auto combinations = stage.Combinations(row, 400);
    const size_t step = combinations.size() / kCalls + 1;
    for (size_t i = 0; i < combinations.size(); i += step) {
      Case one(stage, row, combinations[i]);
      one.Call();
      digests.push_back(one.Digest());
    }
  }
  digests.push_back(stage.Digest());
  return digests;
}

TEST(Threads, EveryFamilyAtOnceTwiceGivesTheSerialResults) {
  const size_t families = Families().size();
  std::vector<std::vector<uint64_t>> serial, parallel(2 * families);
  for (const Family& family : Families()) serial.push_back(RunFamily(family));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < parallel.size(); ++i) {
    threads.emplace_back([&, i] { parallel[i] = RunFamily(Families()[i % families]); });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t i = 0; i < parallel.size(); ++i) {
    EXPECT_GT(serial[i % families].size(), 10u);
    EXPECT_EQ(parallel[i], serial[i % families]) << Families()[i % families].name;
  }
}

// What is documented to be shared: sources, tables, and the edge tool of a search.
TEST(Threads, OneEdgeToolOneSetOfTablesAndOneImageServeAll) {
  constexpr size_t kThreads = 4;
  Stage stage;
  const GeoMatchTool* tool = stage.Geo(GeoState::kTaught);
  const uint8_t* tables[] = {stage.Table(0), stage.Table(1), stage.Table(2)};
  const GreyImage* scene = stage.Grey(kScene);
  const ColourImage* colour = stage.Colour(kScene);
  std::vector<uint64_t> digests(kThreads);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      Hash hash;
      int position[2] = {-1, -1};
      hash.AddNumber(IxFindGeoMatchModel(scene, tool, 0.5, 0.5, position, 10, -10, 1));
      hash.Add(position, sizeof position);
      ColourImage converted;
      IxColorToLab(colour, &converted, tables[0], tables[1], tables[2]);
      hash.AddImage(&converted);
      GreyImage result;
      IxSobel(scene, &result);
      hash.AddImage(&result);
      digests[i] = hash.value();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(digests, std::vector<uint64_t>(kThreads, digests[0]));
}

}  // namespace
}  // namespace quillon::test
