#include "kit/boards/registration.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kit/elementary.h"
#include "kit/errors.h"
#include "kit/images/blocks.h"
#include "kit/images/pixels.h"

namespace quillon::kit {
namespace {

constexpr double kLeastCorrelation = 0.5;  // of a tile that is found at all
constexpr double kLeastContrast = 15;      // standard deviation of a tile with structure
constexpr int kLeastTile = 8;              // pixels of its level
constexpr int kNodeSpacing = 32, kFewestNodes = 2;
constexpr double kNetOverlap = 0.25;

// Nodes of the net along a side.
int Nodes(int side) { return std::clamp(side / kNodeSpacing, kFewestNodes, BoardWarp::kMostNodes); }

// Tiles along a side of the finest level.
int Tiles(int side) {
  constexpr int kSmallest = 16, kMost = 8;
  return std::min(side / kSmallest, kMost);
}

int MultipleOf3(int value) { return value - value % 3; }

double StandardDeviation(const unsigned char* values, int count) {
  int64_t sum = 0, squares = 0;
  InBlocks(count, [&](int first, auto length) {
    int blockSum = 0, blockSquares = 0;
    for (int i = 0; i < length; ++i) {
      const int value = values[first + i];
      blockSum += value;
      blockSquares += value * value;
    }
    sum += blockSum;
    squares += blockSquares;
  });
  const double mean = static_cast<double>(sum) / count;
  return std::sqrt(std::max(0.0, static_cast<double>(squares) / count - mean * mean));
}

// Cuts a tile, along one axis, down to what the other picture of this length shows at every place
// where the tile is tried.
void CutToShown(int& start, int& count, int shift, int range, int length) {
  const int first = std::max({start, 0, range - shift});
  const int end = std::min({start + count, length, length - range - shift});
  start = first;
  count = end - first;
}

// The correlations at the nine places around a tile's best one.
using Nine = std::array<std::array<double, 3>, 3>;  // [y][x]

// Their paraboloid: its curvatures, and where its top lies from the middle place.
TileView FitParaboloid(const Nine& c) {
  const double gx = (c[0][2] + c[1][2] + c[2][2] - c[0][0] - c[1][0] - c[2][0]) / 6;
  const double gy = (c[2][0] + c[2][1] + c[2][2] - c[0][0] - c[0][1] - c[0][2]) / 6;
  const double sides = c[0][0] + c[1][0] + c[2][0] + c[0][2] + c[1][2] + c[2][2];
  const double ends = c[0][0] + c[0][1] + c[0][2] + c[2][0] + c[2][1] + c[2][2];
  const double xx = (2 * (c[0][1] + c[1][1] + c[2][1]) - sides) / 3;
  const double yy = (2 * (c[1][0] + c[1][1] + c[1][2]) - ends) / 3;
  const double xy = (c[0][2] + c[2][0] - c[0][0] - c[2][2]) / 4;
  // Solved along the paraboloid's principal directions: one in which it is level wants no move.
  const double angle = 0.5 * ArcTangent(2 * xy, xx - yy);
  const auto [sine, cosine] = SineCosineOf(angle);
  const auto top = [](double curvature, double slope) {
    constexpr double kLevel = 1e-3, kFarthest = 1.5;
    return curvature > kLevel ? std::clamp(slope / curvature, -kFarthest, kFarthest) : 0;
  };
  const double first = xx * cosine * cosine + 2 * xy * cosine * sine + yy * sine * sine;
  const double second = xx * sine * sine - 2 * xy * cosine * sine + yy * cosine * cosine;
  const double along = top(first, gx * cosine + gy * sine);
  const double across = top(second, gy * cosine - gx * sine);
  const double p = std::max(first, 0.0), q = std::max(second, 0.0);
  return {.x = 0,
          .y = 0,
          .xx = p * cosine * cosine + q * sine * sine,
          .xy = (p - q) * cosine * sine,
          .yy = p * sine * sine + q * cosine * cosine,
          .wanted = {along * cosine - across * sine, along * sine + across * cosine}};
}

}  // namespace

void ReducedBoard::Make(const GreyImage& board) try {
  const int side = std::min(board.width, board.height);
  coarsest_ = 0;
  while (coarsest_ < kMostReductions && side >> (coarsest_ + 1) >= kLeastSide) ++coarsest_;
  finest_ = side < kFullSizeBelow ? 0 : 1;
  if (finest_ == 0) {
    CopyPicture(board, levels_[0]);
  }
  for (int i = 1; i <= coarsest_; ++i) {
    GreyImage& level = levels_[static_cast<size_t>(i)];
    CallExports([&] {
      IxMeanSmoothing3x3(i == 1 ? &board : &levels_[static_cast<size_t>(i) - 1], &smoothed_);
      IxImageScaling(&smoothed_, &level, 0.5, 0.5);
    });
  }
  width_ = board.width;
  height_ = board.height;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("reduced pictures of a board");
}

Registrar::Registrar() : tool_(IxCreateNCCTool()) {
  if (!tool_) throw OutOfMemory("correlating boards");
}

// Brings the pixels of a tile into the window, row after row. Correlation pools the planes of a
// colour image and does not ask where a pixel lies: so the window is one long row, three grey
// pixels to a colour, for which the library is fastest.
void Registrar::Cut(const GreyImage& board, const Tile& tile, int dx, int dy) {
  unsigned char* to = window_.rows[0];
  for (int y = 0; y < tile.height; ++y, to += tile.width) {
    std::memcpy(to, board.rows[tile.top + dy + y] + tile.left + dx,
                static_cast<size_t>(tile.width));
  }
}

// False where there is nothing to recognise. The width is a multiple of 3.
bool Registrar::Teach(const GreyImage& good, const Tile& tile) {
  if (tile.width < kLeastTile || tile.height < kLeastTile) return false;
  const int colours = tile.width / 3 * tile.height;
  if (window_.width != colours || !window_.bits) window_.Create(colours, 1);
  if (!window_.bits) throw OutOfMemory("correlating boards");
  Cut(good, tile, 0, 0);
  if (StandardDeviation(window_.rows[0], tile.width * tile.height) < kLeastContrast) return false;
  if (!IxCreateNCCMatchColorModel_ROI(&window_, tool_.get())) {
    throw OutOfMemory("correlating boards");
  }
  return true;
}

// The correlation with the taught tile when it is moved.
double Registrar::Score(const GreyImage& other, const Tile& tile, int dx, int dy) {
  Cut(other, tile, dx, dy);
  return CallExports([&] { return IxFindNCCMatchColorModel_ROI(&window_, tool_.get()); });
}

// The shift of the whole board, on the coarsest level.
Displacement Registrar::FindWhole(const ReducedBoard& good, const ReducedBoard& other) {
  constexpr int kRange = 4;
  const int reductions = good.Coarsest();
  const GreyImage& from = good.Level(reductions);
  const Tile tile = {kRange, kRange, MultipleOf3(from.width - 2 * kRange),
                     from.height - 2 * kRange};
  Displacement found = {0, 0};
  if (!Teach(from, tile)) return found;
  double best = -1;
  for (int dy = -kRange; dy <= kRange; ++dy) {
    for (int dx = -kRange; dx <= kRange; ++dx) {
      const double score = Score(other.Level(reductions), tile, dx, dy);
      if (score <= best) continue;
      best = score;
      found = {dx * (1.0 * (1 << reductions)), dy * (1.0 * (1 << reductions))};
    }
  }
  return found;
}

// What a tile says, tried around where the warp so far expects it; nothing where it has no
// structure or is not found.
std::optional<TileView> Registrar::View(Tile tile, const Grid& grid, const GreyImage& from,
                                        const GreyImage& to, Registration& result) {
  const double scale = 1 << grid.reductions;
  const int range = grid.range, places = 2 * range + 1;
  const Displacement expected = result.warp.At((tile.left + tile.width / 2.0) * scale,
                                               (tile.top + tile.height / 2.0) * scale);
  const int startX = static_cast<int>(std::lround(expected.x / scale));
  const int startY = static_cast<int>(std::lround(expected.y / scale));
  CutToShown(tile.left, tile.width, startX, range, to.width);
  CutToShown(tile.top, tile.height, startY, range, to.height);
  tile.width = MultipleOf3(tile.width);
  if (!Teach(from, tile)) return {};
  ++result.tiles;

  std::vector<double> scores(static_cast<size_t>(places) * static_cast<size_t>(places));
  const auto at = [&](int dx, int dy) -> double& {
    const int index = (dy + range) * places + dx + range;
    return scores[static_cast<size_t>(index)];
  };
  int bestX = 0, bestY = 0;
  for (int dy = -range; dy <= range; ++dy) {
    for (int dx = -range; dx <= range; ++dx) {
      at(dx, dy) = Score(to, tile, startX + dx, startY + dy);
      if (at(dx, dy) > at(bestX, bestY)) bestX = dx, bestY = dy;
    }
  }
  if (at(bestX, bestY) < kLeastCorrelation) return {};
  ++result.agreeing;

  bestX = std::clamp(bestX, 1 - range, range - 1);
  bestY = std::clamp(bestY, 1 - range, range - 1);
  Nine nine;
  for (int j = 0; j < 3; ++j) {
    for (int i = 0; i < 3; ++i) {
      nine[static_cast<size_t>(j)][static_cast<size_t>(i)] = at(bestX + i - 1, bestY + j - 1);
    }
  }
  TileView view = FitParaboloid(nine);
  view.x = (tile.left + tile.width / 2.0) * scale;
  view.y = (tile.top + tile.height / 2.0) * scale;
  view.wanted = {(startX + bestX + view.wanted.x) * scale,
                 (startY + bestY + view.wanted.y) * scale};
  return view;
}

// One view for each tile, row by row; of no weight where a tile says nothing.
std::vector<TileView> Registrar::View(const Grid& grid, const ReducedBoard& good,
                                      const ReducedBoard& other, Registration& result) {
  const GreyImage& from = good.Level(grid.reductions);
  const GreyImage& to = other.Level(grid.reductions);
  const double width = 1.0 * from.width / grid.columns, height = 1.0 * from.height / grid.rows;
  const int moreX = static_cast<int>(width * grid.overlap);
  const int moreY = static_cast<int>(height * grid.overlap);
  std::vector<TileView> views;
  result.tiles = result.agreeing = 0;
  for (int row = 0; row < grid.rows; ++row) {
    for (int column = 0; column < grid.columns; ++column) {
      const Tile tile = {static_cast<int>(column * width) - moreX,
                         static_cast<int>(row * height) - moreY,
                         static_cast<int>(width) + 2 * moreX, static_cast<int>(height) + 2 * moreY};
      views.push_back(View(tile, grid, from, to, result).value_or(TileView{}));
    }
  }
  return views;
}

Registration Registrar::Register(const ReducedBoard& good, const ReducedBoard& other) try {
  constexpr int kLinear = 3, kQuadratic = BoardWarp::kTerms;
  Registration result = {.warp = BoardWarp(good.Width(), good.Height()), .tiles = 0, .agreeing = 0};
  const int coarsest = good.Coarsest(), finest = good.Finest();
  const auto fit = [&](int terms, const Grid& grid) {
    result.warp.FitPolynomial(terms, View(grid, good, other, result));
  };
  result.warp.Shift(FindWhole(good, other));
  fit(kLinear, {std::max(coarsest - 1, finest), 3, 3, 2});
  for (int i = coarsest - 2; i >= finest; --i) fit(kQuadratic, {i, 5, 5, 1});
  const GreyImage& last = good.Level(finest);
  fit(kQuadratic, {finest, Tiles(last.width), Tiles(last.height), 1});
  const Registration whole = result;  // small tiles say little about what kind of board it is

  const Grid net = {finest, Nodes(good.Width()), Nodes(good.Height()), 1, kNetOverlap};
  const auto views = View(net, good, other, result);
  result.warp.FitNet(net.columns, net.rows, views);
  result.tiles = whole.tiles;
  result.agreeing = whole.agreeing;
  return result;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the registration of a board");
}

}  // namespace quillon::kit
