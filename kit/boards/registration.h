// Finds how the picture of a board lies on that of a good one, by correlating tiles, coarse ones on
// reduced pictures first.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "kit/boards/board_warp.h"
#include "quillon/quillon.h"

namespace quillon::kit {

// A picture reduced by 2, 4, 8 ...; a small one at full size as well.
class ReducedBoard {
 public:
  static constexpr int kLeastSide = 64;  // of the coarsest level, and so of a board

  // Throws Failure when memory is short.
  void Make(const GreyImage& board);
  const GreyImage& Level(int reductions) const { return levels_[static_cast<size_t>(reductions)]; }
  int Coarsest() const { return coarsest_; }
  int Finest() const { return finest_; }
  int Width() const { return width_; }
  int Height() const { return height_; }

 private:
  static constexpr int kMostReductions = 6;
  // Half the resolution is enough: paraboloids tell places to a tenth of a pixel.
  static constexpr int kFullSizeBelow = 320;

  std::array<GreyImage, kMostReductions + 1> levels_;
  GreyImage smoothed_;
  int finest_ = 0, coarsest_ = 0, width_ = 0, height_ = 0;
};

struct Registration {
  BoardWarp warp;
  int tiles, agreeing;  // tiles with structure; those of them that the other picture shows

  // A board of another kind agrees here and there by chance.
  bool Succeeded() const { return agreeing > 0 && 2 * agreeing >= tiles; }
};

// Correlates by the library's template matching.
class Registrar {
 public:
  Registrar();
  // Both of the same size.
  Registration Register(const ReducedBoard& good, const ReducedBoard& other);

 private:
  struct Tile {
    int left, top, width, height;
  };
  // Tiles of one level, and how far they are tried to each side, in pixels of that level.
  struct Grid {
    int reductions, columns, rows, range;
    double overlap = 0;  // how much larger tiles are than their part
  };

  Displacement FindWhole(const ReducedBoard& good, const ReducedBoard& other);
  std::vector<TileView> View(const Grid& grid, const ReducedBoard& good, const ReducedBoard& other,
                             Registration& result);
  std::optional<TileView> View(Tile tile, const Grid& grid, const GreyImage& from,
                               const GreyImage& to, Registration& result);
  void Cut(const GreyImage& board, const Tile& tile, int dx, int dy);
  bool Teach(const GreyImage& good, const Tile& tile);
  double Score(const GreyImage& other, const Tile& tile, int dx, int dy);

  struct ReleaseTool {
    void operator()(NccTool* tool) const { IxDestroyNCCModel(tool); }
  };
  std::unique_ptr<NccTool, ReleaseTool> tool_;
  ColourImage window_;
};

}  // namespace quillon::kit
