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
  const bool isThin = vertical.radius <= ThinVerticalWindow::kMaxRadius;
  std::unique_ptr<WindowedRows> window;
  if (isThin) {
    window = Make<ThinVerticalWindow>(kernels, std::move(input), columns, vertical,
                                      HorizontalWindow::Margin(horizontal));
  } else {
    window = Make<VerticalWindow>(kernels, std::move(input), columns, vertical);
  }
  Box box = {nullptr, window.get()};
  box.rows = std::move(window);
  if (horizontal.radius > 0) {
    box.rows = Make<HorizontalWindow>(kernels, std::move(box.rows), columns, horizontal.radius,
                                      horizontal.inset, isThin);
  }
  return box;
}

// Rows whose edge columns and top row copy what is beside them. The last row of the input takes no
// part; it comes first.
class BorderedRows : public Rows {
 public:
  BorderedRows(Rows* input, int width, int height)
      : width_(width), height_(height), input_(input), kept_(width), left_(height) {}
  bool IsReady() const { return input_ && kept_; }

  const uint8_t* Next(uint8_t* scratch) final {
    if (left_ == height_) input_->Next(kept_.data());
    const int y = --left_;
    if (y == 0) {
      CopyRow(scratch, kept_.data(), width_);
    } else {
      Compute(y, scratch);
      if (y == 1) CopyRow(kept_.data(), scratch, width_);
    }
    return scratch;
  }

 protected:
  // Rows H - 1 ... 1 in turn.
  virtual void Compute(int y, uint8_t* out) = 0;

  void CopyEdges(uint8_t* row) const {
    row[0] = row[1];
    row[width_ - 1] = row[width_ - 2];
  }

  const int width_, height_;

 private:
  Rows* input_;  // owned by a stage of the derived class
  Buffer<uint8_t> kept_;
  int left_;
};

// ---- rectangles ---------------------------------------------------------------------------------

// Horizontal passes only.
class WideRows final : public Rows {
 public:
  WideRows(const ExtremeKernels& kernels, RowsPtr input, int width, int radius, bool isFresh)
      : width_(width),
        isFresh_(isFresh),
        input_(input.get()),
        window_(Make<HorizontalWindow>(kernels, std::move(input), Columns{0, width}, radius, 1)) {}
  bool IsReady() const { return static_cast<bool>(window_); }

  const uint8_t* Next(uint8_t* scratch) override {
    if (isFirst_) {
      isFirst_ = false;
      const uint8_t* last = input_->Next(scratch);
      if (!isFresh_) return last;
      std::memset(scratch, 0, static_cast<size_t>(width_));
      return scratch;
    }
    window_->Next(scratch + 1);
    scratch[0] = scratch[1];
    scratch[width_ - 1] = scratch[width_ - 2];
    return scratch;
  }

 private:
  const int width_;
  const bool isFresh_;
  Rows* input_;  // owned by the window
  RowsPtr window_;
  bool isFirst_ = true;
};

// The first row that a window reads, as often as asked for.
class FirstInputRows final : public Rows {
 public:
  explicit FirstInputRows(WindowedRows* window) : window_(window) {}
  bool IsReady() const { return window_; }
  const uint8_t* Next(uint8_t*) override { return window_->FirstInput(); }

 private:
  WindowedRows* window_;
};

// Vertical passes, and horizontal ones if there are any: their order does not matter to an extreme.
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
  void Compute(int y, uint8_t* out) override {
    uint8_t* to = out + edge_;
    const uint8_t* row = y < height_ - 2 ? inner_->Next(to) : bottom_->Next(to);
    if (row != to) CopyRow(to, row, width_ - 2 * edge_);
    if (edge_ > 0) CopyEdges(out);
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

// One row that lies elsewhere.
class KeptRow final : public Rows {
 public:
  explicit KeptRow(const uint8_t* row) : row_(row) {}
  bool IsReady() const { return true; }
  const uint8_t* Next(uint8_t*) override { return row_; }

 private:
  const uint8_t* row_;
};

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
    auto cross = Make<Cross>(kernels, std::move(input), width);
    cross_ = cross.get();
    GrowInner(std::move(cross), {1, width - 2}, height - 3);
    // The last row copies the one above before a square at the end widens that.
    const bool endsWithSquare = passes.squares == passes.crosses;
    bottom_[0] = WidenedBottom(passes.squares);
    bottom_[1] = WidenedBottom(passes.squares - (endsWithSquare ? 1 : 0));
  }
  bool IsReady() const {
    return BorderedRows::IsReady() && bottomSource_ && inner_ && bottom_[0] && bottom_[1];
  }

 private:
  // What follows the first cross, on the pixels that are not border.
  void GrowInner(std::unique_ptr<Cross> cross, Columns columns, int height) {
    int radius = 1;
    const int steps = std::min(passes_.crosses - 1, DiagonalGrowth::kMaxSteps);
    if (height > 0 && steps >= DiagonalGrowth::kMinSteps) {
      inner_ = Make<DiagonalGrowth>(kernels_, std::move(cross), columns, height, steps);
      radius += steps;
    } else {
      inner_ = std::move(cross);
    }
    if (height == 0) return;
    while (radius < passes_.crosses) {
      const int step = std::min(radius, passes_.crosses - radius);
      inner_ = Make<DiamondGrowth>(kernels_, std::move(inner_), columns, height, step);
      radius += step;
    }
    if (passes_.squares == 0) return;
    const int squares = passes_.squares;
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

  void Compute(int y, uint8_t* out) override {
    const int fromBottom = height_ - 2 - y;
    if (fromBottom < 0) CopyRow(bottomSource_.data(), cross_->FirstInput(), width_);
    if (fromBottom <= 0) {
      ComputeBottom(bottom_[-fromBottom].get(), out);
    } else {
      const uint8_t* row = inner_->Next(out + 1);
      if (row != out + 1) CopyRow(out + 1, row, width_ - 2);
      if (isFresh_ && IsReachedByZero(fromBottom)) SetZero(out);
      if (!isFresh_ && passes_.squares > 0) SpreadCorners(fromBottom, out);
      CopyEdges(out);
    }
  }

  void ComputeBottom(Rows* widened, uint8_t* out) const {
    if (isFresh_) return SetZero(out);
    const uint8_t* row = widened->Next(out + 1);
    if (row == out + 1) return CopyEdges(out);
    CopyRow(out, row, width_);
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
  WindowedRows* cross_ = nullptr;  // owned by inner_ or a stage before it
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
