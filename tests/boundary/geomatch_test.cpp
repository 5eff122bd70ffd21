// Edge-based matching as a host sees it.
#include <cmath>

#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

// An upright, a foot and a square, bright on grey.
void DrawMark(GreyImage& image, int x, int y) {
  for (int v = -14; v <= 14; ++v) {
    for (int u = -14; u <= 14; ++u) {
      const bool inside = u < -8 || v > 8 || (u > -2 && u < 8 && v > -12 && v < 0);
      if (inside) image.rows[y + v][x + u] = 220;
    }
  }
}

class GeoExports : public testing::Test {
 protected:
  GeoExports() : tool_(IxCreateGeoTool()) {
    Fill(pattern_, 40, 40, Content::kFlat);
    DrawMark(pattern_, 20, 20);
    Fill(scene_, 200, 150, Content::kFlat);
    DrawMark(scene_, 133, 71);
  }
  ~GeoExports() override { IxDestroyMatchModel(tool_); }

  double Find(const GreyImage* image, const GeoMatchTool* tool, int* position, int angles = 0) {
    return IxFindGeoMatchModel(image, tool, 0.7, 0.8, position, 30, -30, angles);
  }

  GeoMatchTool* tool_;
  GreyImage pattern_, scene_, empty_;
  int position_[2] = {-3, -4};
};

}  // namespace

TEST_F(GeoExports, TeachFindAndReadThePoints) {
  ASSERT_TRUE(tool_);
  EXPECT_EQ(tool_->model->count, 0);
  ASSERT_TRUE(IxCreateGeoMatchModel(&pattern_, tool_, 80, 30));
  EXPECT_GT(tool_->model->count, 50);
  EXPECT_EQ(tool_->model->referenceX, 20);
  EXPECT_EQ(Find(&scene_, tool_, position_), 0);
  EXPECT_EQ(position_[0], 133);
  EXPECT_EQ(position_[1], 71);
  EXPECT_NEAR(Find(&scene_, tool_, position_, 1), 0, 1.5);
  EXPECT_EQ(Find(&scene_, tool_, position_, 0x1200), 0) << "only the low byte counts";
}

}  // namespace quillon::test
