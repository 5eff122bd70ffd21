// Every export while memory runs out: the n-th allocation of the call fails, for every n until the
// call gets through. Nothing breaks, nothing leaks, a result that is not the usual one comes with a
// note, and with memory the same objects give the same result again.
#include <gtest/gtest.h>

#include "quillon/memory_note.h"
#include "reliability/case.h"
#include "reliability/inside/failing_allocations.h"

namespace quillon::test {
namespace {

// Choices of arguments that take a call different ways: usual ones, each state of each object
// beside usual ones, and the result in place.
std::vector<std::vector<int>> Ways(const Stage& stage, const Export& row) {
  const std::vector<int> usual(row.parameters.size());
  std::vector<std::vector<int>> ways = {usual};
  for (size_t i = 0; i < usual.size(); ++i) {
    const Role role = row.parameters[i].role;
    const bool isNumber = role == Role::kInt || role == Role::kDouble || role == Role::kFloat;
    for (int choice = 1; !isNumber && choice < stage.Choices(row.parameters[i]); ++choice) {
      ways.push_back(usual);
      ways.back()[i] = choice;
    }
  }
  return ways;
}

class FailingMemory : public testing::TestWithParam<size_t> {};

TEST_P(FailingMemory, EndsInADefinedFailure) {
  constexpr int kMostAllocations = 10'000;
  Stage stage;
  for (const Export& row : Families()[GetParam()].exports) {
    stage.KeepFor(row);
    int failures = 0;
    for (const std::vector<int>& way : Ways(stage, row)) {
      uint64_t reference;
      bool leavesImage;
      {
        Case one(stage, row, way);
        if (one.Refused()) continue;
        leavesImage = one.LeavesImage();
        one.Call();
        reference = one.Digest();
      }
      for (int n = 1; n < kMostAllocations; ++n) {
        const long before = LiveBlocks();
        {
          Case one(stage, row, way);
          ForgetMemoryNote();
          FailAllocation(n);
          one.CallOnly();
          const bool isNoted = HasMemoryNote();
          const bool hasFailed = StopFailing();
          one.Keep();
          if (!hasFailed) {
            EXPECT_EQ(one.Digest(), reference) << one.Describe();
            break;
          }
          ++failures;
          const std::string call = one.Describe() + ", allocation " + std::to_string(n);
          EXPECT_EQ(one.ProblemWithoutMemory(reference), "") << call;
          EXPECT_TRUE(isNoted || one.Digest() == reference) << call << ": nothing tells of it";
          if (one.Digest() != reference) one.Call();
          ASSERT_EQ(one.Digest(), reference) << call << ": not usable afterwards";
        }
        EXPECT_TRUE(leavesImage || LiveBlocks() == before)
            << row.name << " leaks, allocation " << n;
      }
    }
    RecordProperty(row.name, failures);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Families, FailingMemory, testing::Range<size_t>(0, 11),
                         [](const auto& family) {
                           std::string name = Families()[family.param].name;
                           name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
                           return name;
                         });

}  // namespace
}  // namespace quillon::test
