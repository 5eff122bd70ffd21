// Every export with every kind of argument: missing, empty, of another depth or size, at the ends
// of its range, in every state. Each call does what the header says or nothing, returns what is
// promised, and leaves alone what it only reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <set>

#include "reliability/case.h"

namespace quillon::test {
namespace {

#if defined(_WIN32) || defined(QUILLON_SANITIZED)
constexpr size_t kFullProduct = 400;  // objects cost tens of microseconds each there
#else
constexpr size_t kFullProduct = 6000;
#endif

TEST(Contract, TheTableHasEveryExportedName) {
  std::set<std::string> exported, listed;
  std::ifstream list("quillon.def");
  for (std::string line; std::getline(list, line);) {
    const size_t first = line.find_first_not_of(' ');
    if (first != 2 || line[first] == ';') continue;
    const size_t end = line.find_first_of(" =\r", first);
    exported.insert(line.substr(first, end == std::string::npos ? end : end - first));
  }
  for (const Family& family : Families()) {
    for (const Export& row : family.exports) {
      EXPECT_TRUE(listed.insert(row.name).second) << row.name << " twice";
    }
  }
  EXPECT_EQ(listed, exported);
  EXPECT_EQ(listed.size(), 117u);
}

// No call on these small images may take long, whatever its numbers: seconds of processor time (on
// Windows, of any time). Generous, for sanitizers and for the two that fill 48 MiB of tables.
#if defined(QUILLON_EMULATED)
constexpr double kLongest = 50;
#else
constexpr double kLongest = 5;
#endif

class Contract : public testing::TestWithParam<size_t> {};

TEST_P(Contract, HoldsForEveryArgument) {
  Stage stage;
  const Family& family = Families()[GetParam()];
  int failures = 0;
  size_t calls = 0;
  std::pair<double, std::string> slowest;
  for (const Export& row : family.exports) {
    size_t worked = 0;
    stage.KeepFor(row);
    const uint64_t before = stage.Digest();
    for (const auto& choice : stage.Combinations(row, kFullProduct)) {
      Case one(stage, row, choice);
      ++calls;
      const std::clock_t start = std::clock();
      one.Call();
      const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
      worked += !one.Refused();
      EXPECT_LT(seconds, kLongest) << one.Describe();
      slowest = std::max(slowest, {seconds, one.Describe()});
      const std::string problem = one.Problem();
      if (!problem.empty()) {
        ADD_FAILURE() << one.Describe() << ": " << problem;
        if (++failures > 20) return;
      }
    }
    EXPECT_GT(worked, 0u) << row.name << " was refused each time";
    const bool writesTables =
        std::any_of(row.parameters.begin(), row.parameters.end(),
                    [](const Parameter& parameter) { return parameter.role == Role::kTable; });
    EXPECT_TRUE(writesTables || stage.Digest() == before) << row.name << " changed what it reads";
  }
  RecordProperty("calls", static_cast<int>(calls));
  RecordProperty("slowest", std::to_string(slowest.first) + " s: " + slowest.second);
}

INSTANTIATE_TEST_SUITE_P(Families, Contract, testing::Range<size_t>(0, 11), [](const auto& family) {
  std::string name = Families()[family.param].name;
  name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
  return name;
});

}  // namespace
}  // namespace quillon::test
