#include "morph/morph_chain.h"

#include <algorithm>
#include <cstring>

#include "morph/morph_kernels.h"

namespace quillon {
namespace {

void CopyRow(uint8_t* to, const uint8_t* from, int width) {
  std::memcpy(to, from, static_cast<size_t>(width));
}

// Extremes over rectangles: along columns, then along rows.
struct Box {
  RowsPtr rows;
  WindowedRows* vertical;  // owned by `rows`
};

Box MakeBox(const ExtremeKernels& kernels, RowsPtr input, Columns columns, Window vertical,
            Window horizontal) {
  const bool isThin = vertical.radius <= ThinWindow::kMaxRadius;
  const bool isSmall = isThin && horizontal.radius == vertical.radius;
  std::unique_ptr<WindowedRows> window;
  if (isThin) {
    window = Make<ThinWindow>(kernels, std::move(input), columns, vertical,
                              isSmall ? horizontal : Window{columns.count, 0, 0});
  } else {
    window = Make<VerticalWindow>(kernels, std::move(input), columns, vertical);
  }
  Box box = {nullptr, window.get()};
  box.rows = std::move(window);
  if (horizontal.radius > 0 && !isSmall) {
    box.rows = Make<HorizontalWindow>(kernels, std::move(box.rows), columns, horizontal.radius,
                                      horizontal.inset);
  }
  return box;
}

// The last stage of most chains. Inner rows, 1 ... H - 3, come from the stages before it; row 0,
// the last two rows and the edge columns are border, made here. Rows come from the bottom up, so
// the last row of the input, which takes no part, is read first and put aside.
class BorderedRows : public Rows {
 public:
  BorderedRows(Rows* input, int width, int height)
      : width_(width), height_(height), input_(input), kept_(width), left_(height) {}
  bool IsReady() const { return input_ && kept_; }

  int Next(uint8_t* const* places, int most, const uint8_t** rows) final {
    if (left_ == height_) input_->NextRow(kept_.data());
    const int y = left_ - 1;
    int count = 1;
    if (y == 0) {
      CopyRow(places[0], kept_.data(), width_);
    } else if (y >= height_ - 2) {
      ComputeBottom(y, places[0]);
    } else {
      count = ComputeInner(y, places, std::min(most, y));
    }
    left_ -= count;
    if (left_ == 1) CopyRow(kept_.data(), places[count - 1], width_);
    std::copy_n(places, count, rows);
    return count;
  }

 protected:
  // Row H - 1, then row H - 2.
  virtual void ComputeBottom(int y, uint8_t* out) = 0;
  // Row y and rows above it, of H - 3 ... 1 in turn; returns how many.
  virtual int ComputeInner(int y, uint8_t* const* out, int most) = 0;

  // The next rows of a stage that leaves out `edge` columns on both sides.
  int TakeInner(Rows& inner, int edge, uint8_t* const* out, int most) const {
    uint8_t* places[kStrip];
    const uint8_t* rows[kStrip];
    for (int i = 0; i < std::min(most, kStrip); ++i) places[i] = out[i] + edge;
    const int count = inner.Next(places, most, rows);
    for (int i = 0; i < count; ++i) {
      if (rows[i] != places[i]) CopyRow(places[i], rows[i], width_ - 2 * edge);
    }
    return count;
  }

  void CopyEdges(uint8_t* row) const {
    uint8_t* const last = row + width_ - 1;
    row[0] = row[1];
    last[0] = last[-1];
  }

  const int width_, height_;

 private:
  Rows* input_;  // owned by a stage of the derived class
  Buffer<uint8_t> kept_;
  int left_;
};

// ---- rectangles ---------------------------------------------------------------------------------

// The last stage when there are horizontal passes only.
class WideRows final : public Rows {
 public:
  WideRows(const ExtremeKernels& kernels, RowsPtr input, int width, int radius, bool isFresh)
      : width_(width),
        isFresh_(isFresh),
        input_(input.get()),
        window_(Make<HorizontalWindow>(kernels, std::move(input), Columns{0, width}, radius, 1)) {}
  bool IsReady() const { return static_cast<bool>(window_); }

  int Next(uint8_t* const* places, int most, const uint8_t** rows) override {
    if (isFirst_) {
      isFirst_ = false;
      rows[0] = input_->NextRow(places[0]);
      if (isFresh_) {
        std::memset(places[0], 0, static_cast<size_t>(width_));
        rows[0] = places[0];
      }
      return 1;
    }
    uint8_t* inner[kStrip];
    for (int i = 0; i < std::min(most, kStrip); ++i) inner[i] = places[i] + 1;
    const int count = window_->Next(inner, most, rows);
    for (int i = 0; i < count; ++i) {
      uint8_t* row = places[i];
      row[0] = row[1];
      row[width_ - 1] = row[width_ - 2];
      rows[i] = row;
    }
    return count;
  }

 private:
  const int width_;
  const bool isFresh_;
  Rows* input_;  // owned by the window
  RowsPtr window_;
  bool isFirst_ = true;
};

// A stage whose every row is the first one that a window reads: row H - 2 of the image, of which
// both rows of the lower border are made.
class FirstInputRows final : public Rows {
 public:
  explicit FirstInputRows(WindowedRows* window) : window_(window) {}
  bool IsReady() const { return window_; }
  int Next(uint8_t* const*, int, const uint8_t** rows) override {
    rows[0] = window_->FirstInput();
    return 1;
  }

 private:
  WindowedRows* window_;
};

// The last stage of a rectangle with vertical passes. These come before the horizontal ones here:
// the order does not matter to an extreme.
class RectangleRows final : public BorderedRows {
 public:
  RectangleRows(const ExtremeKernels& kernels, RowsPtr input, int width, int height,
                int horizontalRadius, int verticalRadius)
      : BorderedRows(input.get(), width, height), edge_(horizontalRadius > 0 ? 1 : 0) {
    Box box = MakeBox(kernels, std::move(input), {0, width}, {height - 1, verticalRadius, 1},
                      {width, horizontalRadius, edge_});
    inner_ = std::move(box.rows);
    bottom_ = Make<FirstInputRows>(box.vertical);
    if (edge_ > 0) {
      bottom_ = Make<HorizontalWindow>(kernels, std::move(bottom_), Columns{0, width},
                                       horizontalRadius, edge_);
    }
  }
  bool IsReady() const { return BorderedRows::IsReady() && inner_ && bottom_; }

 private:
  void ComputeBottom(int, uint8_t* out) override {
    TakeInner(*bottom_, edge_, &out, 1);
    if (edge_ > 0) CopyEdges(out);
  }

  int ComputeInner(int, uint8_t* const* out, int most) override {
    const int count = TakeInner(*inner_, edge_, out, most);
    for (int i = 0; edge_ > 0 && i < count; ++i) CopyEdges(out[i]);
    return count;
  }

  const int edge_;  // columns on each side that copy their neighbour
  RowsPtr inner_, bottom_;
};

RowsPtr ApplyRectangle(const ExtremeKernels& kernels, const Element& element, bool isFresh,
                       RowsPtr input, int width, int height) {
  // Beyond these radii every window is cut at both ends.
  const int h = std::clamp(element.horizontalPasses, isFresh ? 1 : 0, width);
  const int v = std::clamp(element.verticalPasses, 0, std::max(height - 3, 1));
  if (v > 0) return Make<RectangleRows>(kernels, std::move(input), width, height, h, v);
  if (h > 0) return Make<WideRows>(kernels, std::move(input), width, h, isFresh);
  return input;
}

// ---- diamonds and circles -----------------------------------------------------------------------

struct Passes {
  int crosses, squares;
  int Count() const { return crosses + squares; }
};

// A stage whose every row is the same one, which somebody else keeps.
class KeptRow final : public Rows {
 public:
  explicit KeptRow(const uint8_t* row) : row_(row) {}
  bool IsReady() const { return true; }
  int Next(uint8_t* const*, int, const uint8_t** rows) override {
    rows[0] = row_;
    return 1;
  }

 private:
  const uint8_t* row_;
};

// The last stage of diamonds and circles: of a star, as morph_chain.h calls both.
class StarRows final : public BorderedRows {
 public:
  StarRows(const ExtremeKernels& kernels, Extreme extreme, RowsPtr input, int width, int height,
           Passes passes, bool isFresh)
      : BorderedRows(input.get(), width, height),
        kernels_(kernels),
        extreme_(extreme),
        passes_(passes),
        isFresh_(isFresh),
        bottomSource_(width) {
    GrowInner(std::move(input));
    // The last row copies the one above before a square at the end widens that.
    const bool endsWithSquare = passes.squares == passes.crosses;
    bottom_[0] = WidenedBottom(passes.squares);
    bottom_[1] = WidenedBottom(passes.squares - (endsWithSquare ? 1 : 0));
  }
  bool IsReady() const {
    return BorderedRows::IsReady() && bottomSource_ && inner_ && bottom_[0] && bottom_[1];
  }

 private:
  // Makes the stages for the pixels that are not border. A diamond of crosses begins with one
  // cross, which DiagonalWindows and DiamondGrowth then widen. Where squares follow,
  // DiagonalWindows can begin: it says why.
  void GrowInner(RowsPtr input) {
    const Columns columns = {1, width_ - 2};
    const int height = height_ - 3, crosses = passes_.crosses, squares = passes_.squares;
    std::unique_ptr<WindowedRows> first;
    int radius = 1;
    if (squares > 0 && columns.count > 1 && crosses >= DiagonalWindows::kMinSteps &&
        crosses <= DiagonalWindows::kMaxSteps) {
      first = Make<DiagonalWindows>(kernels_, std::move(input), Columns{0, width_}, height_ - 1,
                                    crosses, 1);
      radius = crosses;
    } else {
      first = Make<Cross>(kernels_, std::move(input), width_, height_ - 1);
    }
    first_ = first.get();
    inner_ = std::move(first);
    if (height == 0) return;
    const int steps = std::min(crosses - radius, DiagonalWindows::kMaxSteps);
    if (steps >= DiagonalWindows::kMinSteps) {
      inner_ = Make<DiagonalWindows>(kernels_, std::move(inner_), columns, height, steps, 0);
      radius += steps;
    }
    while (radius < crosses) {
      // Where two steps are left, the first takes half: small steps read rows four at a time.
      const int left = crosses - radius, step = std::min(radius, left > radius ? left / 2 : left);
      inner_ = Make<DiamondGrowth>(kernels_, std::move(inner_), columns, height, step);
      radius += step;
    }
    if (squares == 0) return;
    inner_ = MakeBox(kernels_, std::move(inner_), columns, {height, std::min(squares, height), 0},
                     {columns.count, std::min(squares, columns.count), 0})
                 .rows;
  }

  // Row H - 2 after this many squares, the edge columns still to be copied.
  RowsPtr WidenedBottom(int squares) const {
    RowsPtr row = Make<KeptRow>(bottomSource_.data());
    if (squares == 0) return row;
    return Make<HorizontalWindow>(kernels_, std::move(row), Columns{0, width_},
                                  std::min(squares, width_), 1);
  }

  void ComputeBottom(int y, uint8_t* out) override {
    const bool isLast = y == height_ - 1;
    if (isLast) CopyRow(bottomSource_.data(), first_->FirstInput(), width_);
    if (isFresh_) return SetZero(out);
    Rows& widened = *bottom_[isLast ? 1 : 0];
    const uint8_t* row = widened.NextRow(out + 1);
    if (row == out + 1) return CopyEdges(out);
    CopyRow(out, row, width_);
  }

  int ComputeInner(int y, uint8_t* const* out, int most) override {
    const int count = TakeInner(*inner_, 1, out, most);
    for (int i = 0; i < count; ++i) {
      const int fromBottom = height_ - 2 - y + i;
      if (isFresh_ && IsReachedByZero(fromBottom)) SetZero(out[i]);
      if (!isFresh_ && passes_.squares > 0) SpreadCorners(fromBottom, out[i]);
      CopyEdges(out[i]);
    }
    return count;
  }

  void SetZero(uint8_t* row) const { std::memset(row, 0, static_cast<size_t>(width_)); }

  bool IsReachedByZero(int fromBottom) const {
    return extreme_ == Extreme::kMinimum && fromBottom < passes_.Count();
  }

  // The first square takes the corner to the pixel diagonally inside; from there the passes after
  // it spread it.
  void SpreadCorners(int fromBottom, uint8_t* row) const {
    const int64_t crosses = passes_.crosses - 1, squares = passes_.squares - 1;
    const int64_t rise = fromBottom - 1;
    const int64_t reach = std::min(crosses + squares, crosses + 2 * squares - rise);
    if (rise > crosses + squares || reach < 0) return;
    const int count = static_cast<int>(std::min<int64_t>(reach + 1, width_ - 2));
    for (int x = 1; x <= count; ++x) Take(row[x], bottomSource_[0]);
    for (int x = width_ - 1 - count; x <= width_ - 2; ++x)
      Take(row[x], bottomSource_[static_cast<size_t>(width_) - 1]);
  }

  void Take(uint8_t& pixel, uint8_t value) const {
    pixel = extreme_ == Extreme::kMaximum ? std::max(pixel, value) : std::min(pixel, value);
  }

  const ExtremeKernels& kernels_;
  const Extreme extreme_;
  const Passes passes_;
  const bool isFresh_;
  Buffer<uint8_t> bottomSource_;
  WindowedRows* first_ = nullptr;  // owned by inner_ or a stage before it
  RowsPtr inner_;
  RowsPtr bottom_[2];
};

// Passes beyond these counts change nothing: the farthest pixels have met.
Passes CountPasses(const Element& element, bool isFresh, int width, int height) {
  const int made = std::max(element.passes, isFresh ? 1 : 0);
  if (element.shape == Shape::kDiamond) return {std::min(made, width + height), 0};
  const int n = std::min(made, 2 * (width + height));
  return {(n + 1) / 2, n / 2};
}

}  // namespace

RowsPtr ApplyPasses(const ExtremeKernels& kernels, Extreme extreme, const Element& element,
                    bool isFresh, RowsPtr input, int width, int height) {
  if (element.shape == Shape::kRectangle) {
    return ApplyRectangle(kernels, element, isFresh, std::move(input), width, height);
  }
  const Passes passes = CountPasses(element, isFresh, width, height);
  if (passes.Count() == 0) return input;
  return Make<StarRows>(kernels, extreme, std::move(input), width, height, passes, isFresh);
}

}  // namespace quillon
