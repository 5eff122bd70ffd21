#include "morph/morph.h"

#include <algorithm>
#include <cstring>

#include "core/image_access.h"
#include "morph/morph_chain.h"
#include "morph/morph_kernels.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kSmallestSide = 3;

bool IsTooSmall(const GreyImage& image) {
  return image.width < kSmallestSide || image.height < kSmallestSide;
}

bool Recreate(GreyImage& result, const GreyImage& source) {
  return RecreateForOverwrite(result, source.width, source.height);
}

const ExtremeKernels& KernelsOf(const Kernels& kernels, Extreme extreme) {
  return extreme == Extreme::kMaximum ? kernels.morph.maximum : kernels.morph.minimum;
}

Extreme Opposite(Extreme extreme) {
  return extreme == Extreme::kMaximum ? Extreme::kMinimum : Extreme::kMaximum;
}

// What an operation does to the rows of its source.
class Work {
 public:
  Work(const Kernels& kernels, const GreyImage& source, const Element& element)
      : kernels_(kernels), source_(source), element_(element) {}

  RowsPtr Read(bool isOverwritten) const { return Make<ImageRows>(source_, isOverwritten); }
  RowsPtr Passes(Extreme extreme, bool isFresh, RowsPtr input) const {
    return ApplyPasses(KernelsOf(kernels_, extreme), extreme, element_, isFresh, std::move(input),
                       source_.width, source_.height);
  }
  // An opening when `first` is the minimum, a closing when it is the maximum. The second chain
  // always works over the result of the first.
  RowsPtr Pair(Extreme first, bool isFresh, RowsPtr input) const {
    return Passes(Opposite(first), false, Passes(first, isFresh, std::move(input)));
  }

 private:
  const Kernels& kernels_;
  const GreyImage& source_;
  const Element& element_;
};

void StoreRows(Rows& chain, GreyImage& result) {
  for (int left = result.height; left > 0;) {
    uint8_t* places[Rows::kStrip];
    const uint8_t* rows[Rows::kStrip];
    const int most = std::min(left, Rows::kStrip);
    for (int i = 0; i < most; ++i) places[i] = result.rows[left - 1 - i];
    const int count = chain.Next(places, most, rows);
    for (int i = 0; i < count; ++i) {
      if (rows[i] != places[i]) {
        std::memcpy(places[i], rows[i], static_cast<size_t>(result.width));
      }
    }
    left -= count;
  }
}

// Hands out the rows of a chain one by one, although it yields several at a time. They wait in the
// result, unless that is the source, which is still being read; then in a few rows of its own.
class RowReader {
 public:
  RowReader(RowsPtr chain, const GreyImage& source, GreyImage& result)
      : chain_(std::move(chain)),
        result_(&source == &result ? nullptr : &result),
        own_(Rows::kStrip, {0, source.width}, 0),
        left_(source.height) {}
  explicit operator bool() const { return chain_ && own_; }
  const uint8_t* Next() {
    if (next_ == count_) {
      uint8_t* places[Rows::kStrip];
      const int most = std::min(left_, Rows::kStrip);
      for (int i = 0; i < most; ++i) {
        places[i] = result_ ? result_->rows[left_ - 1 - i] : own_.Row(i);
      }
      count_ = chain_->Next(places, most, rows_);
      left_ -= count_;
      next_ = 0;
    }
    return rows_[next_++];
  }

 private:
  RowsPtr chain_;
  GreyImage* result_;
  RowRing own_;
  int left_;  // that the chain has not yielded yet
  const uint8_t* rows_[Rows::kStrip];
  int count_ = 0, next_ = 0;
};

void ApplyOne(const Kernels& kernels, const GreyImage& source, GreyImage& result,
              const Element& element, Extreme extreme) {
  if (IsTooSmall(source)) return;
  const bool isInPlace = &source == &result;
  const Work work(kernels, source, element);
  const RowsPtr rows = work.Passes(extreme, !isInPlace, work.Read(isInPlace));
  if (!rows || (!isInPlace && !Recreate(result, source))) return;
  StoreRows(*rows, result);
}

void ApplyPair(const Kernels& kernels, const GreyImage& source, GreyImage& result,
               const Element& element, Extreme first) {
  if (IsTooSmall(source)) return;
  const bool isInPlace = &source == &result;
  // The two calls come in the other order here, and the second one overwrites the first.
  if (element.shape != Shape::kRectangle && !isInPlace) {
    return ApplyOne(kernels, source, result, element, Opposite(first));
  }
  const Work work(kernels, source, element);
  const RowsPtr rows = work.Pair(first, !isInPlace, work.Read(isInPlace));
  if (!rows || (!isInPlace && !Recreate(result, source))) return;
  StoreRows(*rows, result);
}

// The in-place forms of gradient and top-hats have always left one image of the source's size
// behind; hosts' memory figures count on it. Nothing is kept in it. Leak checkers: suppress this
// function.
[[gnu::noinline]] void LeaveTemporaryImage(const GreyImage& source) {
  auto* temporary = new (std::nothrow) GreyImage;
  if (temporary) temporary->Create(source.width, source.height);
  asm volatile("" : : "r"(temporary));  // the compiler may not drop an allocation without a use
}

// Gives the finished row y to both images, and the source's padding bytes to the result. Only for
// two different images, and not before the chain has read on by kRowsKept rows: it still reads rows
// of the source where they lie.
void ShareRow(GreyImage& source, GreyImage& result, int y) {
  const auto width = static_cast<size_t>(source.width);
  const auto bytes = static_cast<size_t>(std::min(source.stride, result.stride));
  std::memcpy(source.rows[y], result.rows[y], width);
  std::memcpy(result.rows[y] + width, source.rows[y] + width, bytes - width);
}

// Computes the rows of the result, from the bottom up, into the source as well.
template <class ComputeRow>
void ComputeShared(GreyImage& source, GreyImage& result, ComputeRow&& computeRow) {
  const bool isInPlace = &source == &result;
  for (int y = source.height - 1; y >= -Rows::kRowsKept; --y) {
    if (y >= 0) computeRow(y);
    const int finished = y + Rows::kRowsKept;
    if (!isInPlace && finished < source.height) ShareRow(source, result, finished);
  }
}

bool Is3x3(const Element& element) {
  return element.shape == Shape::kRectangle && element.horizontalPasses == 1 &&
         element.verticalPasses == 1;
}

// The gradient of the 3 x 3 square, computed in one go: erosion and dilation treat all borders
// alike. The last two rows get the horizontal pass alone, which is the 3 x 3 one over three equal
// rows.
void ComputeGradientOf3x3(const Kernels& kernels, GreyImage& source, GreyImage& result) {
  constexpr int kStrip = MorphKernels::kMaxGradientRows;
  const int width = source.width, height = source.height;
  const auto copyRow = [&](int from, int to) {
    std::memcpy(result.rows[to], result.rows[from], static_cast<size_t>(width));
  };
  const uint8_t* from[kStrip + 2];
  uint8_t* out[kStrip];
  from[0] = from[1] = from[2] = source.rows[height - 2];
  kernels.morph.GradientOf3x3(from, 1, &result.rows[height - 1], width);
  copyRow(height - 1, height - 2);
  int shared = height;  // the rows from here on are the source's as well
  for (int last = height - 3; last >= 1; last -= kStrip) {
    const int count = std::min(kStrip, last);
    for (int i = 0; i < count + 2; ++i) from[i] = source.rows[last + 1 - i];
    for (int i = 0; i < count; ++i) out[i] = result.rows[last - i];
    kernels.morph.GradientOf3x3(from, count, out, width);
    // The next rows read the topmost one of these.
    while (shared > last - count + 2) ShareRow(source, result, --shared);
  }
  copyRow(1, 0);
  while (shared > 0) ShareRow(source, result, --shared);
}

// In place the source becomes a copy of a fresh image: grey palette, padding zero.
void MakeLikeCopy(GreyImage& image) {
  const auto padding = static_cast<size_t>(image.stride - image.width);
  for (int y = 0; y < image.height; ++y) std::memset(image.rows[y] + image.width, 0, padding);
  store::InstallGreyRamp(image.bitmap);
}

}  // namespace

void Dilate(const Kernels& kernels, const GreyImage& source, GreyImage& result,
            const Element& element) {
  ApplyOne(kernels, source, result, element, Extreme::kMaximum);
}

void Erode(const Kernels& kernels, const GreyImage& source, GreyImage& result,
           const Element& element) {
  ApplyOne(kernels, source, result, element, Extreme::kMinimum);
}

void Open(const Kernels& kernels, const GreyImage& source, GreyImage& result,
          const Element& element) {
  ApplyPair(kernels, source, result, element, Extreme::kMinimum);
}

void Close(const Kernels& kernels, const GreyImage& source, GreyImage& result,
           const Element& element) {
  ApplyPair(kernels, source, result, element, Extreme::kMaximum);
}

// The erosion goes into another image, the dilation over the source.
void Gradient(const Kernels& kernels, GreyImage& source, GreyImage& result,
              const Element& element) {
  if (IsTooSmall(source)) return;
  const bool isInPlace = &source == &result;
  if (Is3x3(element) && !isInPlace) {
    if (Recreate(result, source)) ComputeGradientOf3x3(kernels, source, result);
    return;
  }
  const Work work(kernels, source, element);
  RowReader lower(work.Passes(Extreme::kMinimum, true, work.Read(isInPlace)), source, result);
  RowReader upper(work.Passes(Extreme::kMaximum, false, work.Read(isInPlace)), source, source);
  if (!lower || !upper) return;
  if (isInPlace) {
    LeaveTemporaryImage(source);
  } else if (!Recreate(result, source)) {
    return;
  }
  ComputeShared(source, result, [&](int y) {
    const uint8_t* low = lower.Next();
    const uint8_t* high = upper.Next();
    kernels.morph.Subtract(high, low, result.rows[y], source.width);
  });
}

void WhiteTopHat(const Kernels& kernels, GreyImage& source, GreyImage& result,
                 const Element& element) {
  if (IsTooSmall(source)) return;
  const bool isInPlace = &source == &result;
  const Work work(kernels, source, element);
  RowReader opening(work.Pair(Extreme::kMinimum, true, work.Read(isInPlace)), source, result);
  if (!opening) return;
  if (isInPlace) {
    LeaveTemporaryImage(source);
  } else if (!Recreate(result, source)) {
    return;
  }
  ComputeShared(source, result, [&](int y) {
    kernels.morph.Subtract(source.rows[y], opening.Next(), result.rows[y], source.width);
  });
}

void BlackTopHat(const Kernels& kernels, const GreyImage& source, GreyImage& result,
                 const Element& element) {
  if (IsTooSmall(source)) return;
  const bool isInPlace = &source == &result;
  const Work work(kernels, source, element);
  RowReader closing(work.Pair(Extreme::kMaximum, true, work.Read(isInPlace)), source, result);
  if (!closing) return;
  if (isInPlace) {
    LeaveTemporaryImage(source);
    MakeLikeCopy(result);
  } else if (!Recreate(result, source)) {
    return;
  }
  for (int y = source.height - 1; y >= 0; --y) {
    kernels.morph.Subtract(closing.Next(), source.rows[y], result.rows[y], source.width);
  }
}

}  // namespace quillon
