// The finder while memory runs out: the n-th allocation of a call fails, for every n until the call
// gets through. Each says so, leaves nothing half made, and does not leak.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "finder/finder.h"
#include "reliability/inside/failing_allocations.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

using namespace finder;

Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

// A call, whether what it gives is empty, and whether it is what it would be with memory.
struct Step {
  const char* name;
  std::function<Status()> call;
  std::function<bool()> isEmpty, isWhole;
  std::function<void()> clear;
};

TEST(FinderMemory, EndsInAnErrorAtEveryAllocation) {
  constexpr int kMostAllocations = 10'000;
  for (const Way way : {Way::kEdges, Way::kGrey}) {
    const FinderKernels& kernels = BestFinderKernels();
    const int side = way == Way::kEdges ? 48 : 32;
    GreyImage pattern, scene, mask;
    MakeScene({.templateWidth = side,
               .templateHeight = side,
               .width = 120,
               .height = 100,
               .angleMin = 10,
               .angleMax = 10,
               .seed = 3},
              pattern, scene);
    Fill(mask, side, side, Content::kFlat);
    mask.rows[3][5] = 0;
    TeachOptions teaching;
    teaching.way = way;
    if (way == Way::kGrey) teaching.mask = PictureOf(mask);
    FindOptions options;
    options.angleLow = 9;
    options.angleHigh = 11;
    options.scaleLow = 0.75;  // by grey values, sizes this small are swept a level finer
    Model taught, model;
    Buffer<uint8_t> file, bytes;
    Results all, results;
    ASSERT_EQ(Teach(kernels, PictureOf(pattern), teaching, taught), Status::kOk);
    ASSERT_EQ(Save(taught, file), Status::kOk);
    ASSERT_EQ(Find(kernels, taught, PictureOf(scene), options, all), Status::kOk);
    ASSERT_EQ(all.size(), 1U);
    const auto isTaught = [&] {
      Buffer<uint8_t> again;
      return model.levels == taught.levels && Save(model, again) == Status::kOk &&
             again.size() == file.size() && !std::memcmp(again.data(), file.data(), file.size());
    };
    const auto isUntaught = [&] { return !model.IsTaught() && !model.pixels; };
    const auto forget = [&] { model = Model(); };
    const Step steps[] = {
        {"teach", [&] { return Teach(kernels, PictureOf(pattern), teaching, model); }, isUntaught,
         isTaught, forget},
        {"load",
         [&] {
           return Load(kernels, {file.data(), file.size()}, model);
         },
         isUntaught, isTaught, forget},
        {"save", [&] { return Save(taught, bytes); }, [&] { return bytes.size() == 0; },
         [&] {
           return bytes.size() == file.size() &&
                  !std::memcmp(bytes.data(), file.data(), file.size());
         },
         [&] { bytes = {}; }},
        {"find", [&] { return Find(kernels, taught, PictureOf(scene), options, results); },
         [&] { return results.empty(); },
         [&] {
           return results.size() == 1 && !std::memcmp(results.data(), all.data(), sizeof(Match));
         },
         [&] { results = {}; }},
    };
    for (const Step& step : steps) {
      for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations) << step.name;
        const long before = LiveBlocks();
        FailAllocation(n);
        const Status status = step.call();
        const bool hasFailed = StopFailing();
        EXPECT_EQ(status, hasFailed ? Status::kNoMemory : Status::kOk) << step.name << ' ' << n;
        EXPECT_TRUE(hasFailed ? step.isEmpty() : step.isWhole()) << step.name << ' ' << n;
        step.clear();
        EXPECT_EQ(LiveBlocks(), before) << step.name << " leaks, allocation " << n;
        if (HasFailure()) return;
        if (hasFailed) continue;
        EXPECT_GT(n, 1) << step.name << " needs no memory";
        RecordProperty(step.name, n - 1);
        break;
      }
    }
  }
}

}  // namespace
}  // namespace quillon::test
