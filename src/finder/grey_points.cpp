#include "finder/grey_points.h"

#include "finder/level_mask.h"

namespace quillon::finder {
namespace {

// The slope of a row or column at a pixel; `back` and `ahead` are the distances to its neighbours,
// 0 where there is none.
float SlopeOf(const uint8_t* at, ptrdiff_t back, ptrdiff_t ahead) {
  if (back == 0 && ahead == 0) return 0;
  const auto rise = static_cast<float>(at[ahead] - at[-back]);
  return back != 0 && ahead != 0 ? rise / 2 : rise;
}

}  // namespace

bool GreyPoints::Make(const uint8_t* pixels, ptrdiff_t stride, const LevelMask& mask,
                      double centreX, double centreY, int step, int side) {
  const int width = mask.Width(), height = mask.Height();
  grid_ = CellGrid::Of(width, height, side * step);
  halfWidth_ = std::max(centreX, width - 1 - centreX);
  halfHeight_ = std::max(centreY, height - 1 - centreY);
  radius_ = std::max(1.0, std::sqrt(halfWidth_ * halfWidth_ + halfHeight_ * halfHeight_));
  // A turned square grid, of which every row and column of the template has some: one that leaves
  // out rows and columns sees an edge along these from one side only, and takes blur for a move.
  const int apart = step == 1 ? 1 : step * step + 1;
  const auto forEach = [&](const auto& body) {
    for (int y = 0; y < height; ++y) {
      for (int x = (apart - step * y % apart) % apart; x < width; x += apart) {
        if (!mask.At(x, y)) continue;
        body(x, y, cells_[grid_.At(x - (width - 1) / 2.0, y - (height - 1) / 2.0)]);
      }
    }
  };
  cells_.Clear();
  for (int i = 0; i < grid_.Count(); ++i) {
    if (!cells_.Add({})) return false;
  }
  forEach([](int, int, Cell& cell) { ++cell.count; });
  count_ = size_ = 0;
  for (Cell& cell : cells_) {
    cell.begin = size_;
    count_ += cell.count;
    size_ += RoundUpToBlock(cell.count);
    cell.count = 0;
  }
  columns_ = Buffer<float>::Zeroed(static_cast<size_t>(kPointColumns) * size_);
  if (!columns_) return false;
  forEach([&](int x, int y, Cell& cell) {
    const uint8_t* at = pixels + y * stride + x;
    const float u = static_cast<float>(x - centreX), v = static_cast<float>(y - centreY);
    const float value = *at - kMiddleGrey;
    const float slopeU = SlopeOf(at, x > 0, x + 1 < width);
    const float slopeV = SlopeOf(at, y > 0 ? stride : 0, y + 1 < height ? stride : 0);
    float* to = &columns_[cell.begin + cell.count++];
    for (const float column : {u, v, value, slopeU, slopeV}) *to = column, to += size_;
    double terms[kFitTerms];
    TermsOf(u, v, value, slopeU, slopeV, radius_, terms);
    cell.products.Add(terms);
  });
  for (Cell& cell : cells_) cell.contrast = cell.products.Contrast();
  return true;
}

}  // namespace quillon::finder
