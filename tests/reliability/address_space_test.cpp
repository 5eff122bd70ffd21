// Every export when the process has no addresses left: large blocks are refused, small ones may
// still be had. Images take what there is: 2 GiB of a 32-bit program on Windows, the most that a
// WebAssembly module or an emulated program may have, and elsewhere what a limit leaves.
#include <gtest/gtest.h>

#include <memory>

#include "reliability/case.h"
#include "support/images.h"

#if !defined(_WIN32) && !defined(__EMSCRIPTEN__)
#define QUILLON_LIMITS_ADDRESSES 1
#include <sys/resource.h>

#include <fstream>
#endif

#if !defined(QUILLON_SANITIZED) && !defined(_WIN64)  // where all addresses can be taken

namespace quillon::test {
namespace {

constexpr Extent kLarge = {1280, 800};  // its store is a block of its own for every allocator

#ifdef QUILLON_LIMITS_ADDRESSES
class AddressLimit {
 public:
  AddressLimit() {
    getrlimit(RLIMIT_AS, &before_);
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    constexpr rlim_t kRoom = 1 << 19;
    rlimit tight = before_;
    tight.rlim_cur = pages * 4096 + kRoom;
    setrlimit(RLIMIT_AS, &tight);
  }
  ~AddressLimit() { setrlimit(RLIMIT_AS, &before_); }

 private:
  rlimit before_ = {};
};
#else
class AddressLimit {};
#endif

// Images that nobody looks at, down to a quarter of what the calls need.
class Exhaustion {
 public:
  Exhaustion() {
    constexpr int64_t kMost = int64_t{1} << 32;  // who gets more is not limited at all
    int64_t taken = 0;
    for (int side = 8192; side >= 512; side /= 2) {
      while (count_ < std::size(images_) && taken < kMost) {
        images_[count_].CreateForOverwrite(side, side);
        if (!images_[count_].bits) break;
        taken += images_[count_].imageSize;
        ++count_;
      }
    }
    // Room for what small blocks need.
    for (int i = 0; i < 4 && count_ > 0; ++i) images_[--count_].Destroy();
  }

 private:
  [[maybe_unused]] AddressLimit limit_;
  GreyImage images_[8192];
  size_t count_ = 0;
};

TEST(AddressSpace, EveryExportFailsInADefinedWayWithoutAny) {
  struct Prepared {
    const Export* row;
    std::unique_ptr<Case> one;
    uint64_t reference;
  };
  Stage stage;
  Fill(*stage.Grey(kScene), kLarge.width, kLarge.height, Content::kRamp);
  Fill(*stage.Colour(kScene), kLarge.width, kLarge.height, Content::kRamp);
  std::vector<Prepared> calls;
  for (const Family& family : Families()) {
    for (const Export& row : family.exports) {
      stage.KeepFor(row);
      const std::vector<int> usual(row.parameters.size());
      Case reference(stage, row, usual);
      reference.Call();
      calls.push_back({&row, std::make_unique<Case>(stage, row, usual), reference.Digest()});
    }
  }

  auto exhaustion = std::make_unique<Exhaustion>();
  for (const Prepared& call : calls) call.one->CallOnly();
  exhaustion.reset();

  int failed = 0;
  for (const Prepared& call : calls) {
    call.one->Keep();
    EXPECT_EQ(call.one->ProblemWithoutMemory(call.reference), "") << call.row->name;
    if (call.one->Digest() == call.reference) continue;
    ++failed;
    call.one->Call();
    EXPECT_EQ(call.one->Digest(), call.reference) << call.row->name << " not usable afterwards";
  }
  EXPECT_GT(failed, 40) << "of the calls need a large block";
}

}  // namespace
}  // namespace quillon::test

#endif
