// A hundred thousand mixed calls on objects that live through all of them, as in a host that runs
// for months: afterwards the memory in use is what it was.
#include <gtest/gtest.h>

#include "reliability/case.h"
#include "reliability/memory_in_use.h"
#include "support/images.h"

namespace quillon::test {
namespace {

#if defined(QUILLON_EMULATED)
// Among ten thousand is a colour search at all sizes down to nothing, for a template as large as
// its image and never reduced: two seconds of a processor, and minutes of an emulator.
constexpr int kCalls = 5'000;
#elif defined(QUILLON_SANITIZED)
constexpr int kCalls = 10'000;
#else
constexpr int kCalls = 100'000;
#endif

void MakeMixedCalls(int calls) {
  Stage stage;
  std::vector<const Export*> rows;
  for (const Family& family : Families()) {
    for (const Export& row : family.exports) {
      // Filling 48 MiB of tables takes a tenth of a second by its nature.
      if (std::string(row.name).rfind("IxCreateCTo", 0) != 0) rows.push_back(&row);
    }
  }
  Random random(2026);
  for (int n = 0; n < calls; ++n) {
    const Export& row = *rows[static_cast<size_t>(random.Within(0, int(rows.size()) - 1))];
    std::vector<int> choice;
    for (const Parameter& parameter : row.parameters) {
      const bool usual = random.Within(0, 2) > 0;
      choice.push_back(usual ? 0 : random.Within(0, stage.Choices(parameter) - 1));
    }
    Case one(stage, row, choice, Lifetime::kLong);
    if (one.LeavesImage()) continue;
    one.Call();
    ASSERT_EQ(one.Problem(), "") << one.Describe() << ", call " << n;
  }
}

TEST(Soak, MixedCallsEndWithTheMemoryTheyBeganWith) {
  MakeMixedCalls(kCalls / 20);  // what programs make once
  const size_t before = MemoryInUse();
  MakeMixedCalls(kCalls);
  EXPECT_LE(MemoryInUse(), before + kMemoryTolerance);
}

}  // namespace
}  // namespace quillon::test
