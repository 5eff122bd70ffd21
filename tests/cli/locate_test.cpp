// quillon locate on drawn parts.
#include <gtest/gtest.h>

#include <cmath>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/images/image_files.h"
#include "support/images.h"

namespace quillon::test {
namespace {

constexpr int kSide = 80;

// A plate with a slot and a foot, turned clockwise about (x, y).
void DrawPart(GreyImage& image, double x, double y, double degrees) {
  const double a = degrees * 3.14159265358979323846 / 180;
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      const double dx = column - x, dy = row - y;
      const double u = dx * std::cos(a) + dy * std::sin(a);
      const double v = dy * std::cos(a) - dx * std::sin(a);
      const bool plate = std::abs(u) < 24 && v > -26 && v < 8;
      const bool slot = u > 2 && u < 16 && v > -20 && v < -10;
      const bool foot = u > -24 && u < -8 && v >= 8 && v < 28;
      if ((plate && !slot) || foot) image.rows[row][column] = 210;
    }
  }
}

class Locate : public testing::Test {
 protected:
  Locate() {
    GreyImage pattern, scene;
    Fill(pattern, kSide, kSide, Content::kFlat);
    DrawPart(pattern, kSide / 2, kSide / 2, 0);
    kit::WriteImage(pattern_, pattern);
    Fill(scene, 300, 220, Content::kFlat);
    DrawPart(scene, 181, 97, 0);
    kit::WriteImage(straight_, scene);
    Fill(scene, 300, 220, Content::kFlat);
    DrawPart(scene, 120, 110, 17);
    kit::WriteImage(turned_, scene);
    Fill(scene, 300, 220, Content::kFlat);
    kit::WriteImage(nothing_, scene);
  }

  Scratch folder_;
  std::string pattern_ = folder_ / "part.png", straight_ = folder_ / "straight.png";
  std::string turned_ = folder_ / "turned.png", nothing_ = folder_ / "nothing.png";
};

}  // namespace

TEST_F(Locate, FindsThePartAndItsAngle) {
  const auto straight = QuillonJson({"locate", pattern_, straight_});
  EXPECT_GT(straight["edge_points"], 100);
  ASSERT_EQ(straight["matches"].size(), 1u);
  EXPECT_EQ(straight["matches"][0]["x"], 181);
  EXPECT_EQ(straight["matches"][0]["y"], 97);
  EXPECT_GT(straight["matches"][0]["score"], 0.99);

  const auto turned = QuillonJson({"locate", pattern_, turned_, "--angle", "-30", "30"});
  ASSERT_EQ(turned["matches"].size(), 1u);
  EXPECT_NEAR(turned["matches"][0]["x"].get<double>(), 120, 3);
  EXPECT_NEAR(turned["matches"][0]["y"].get<double>(), 110, 3);
  EXPECT_NEAR(turned["matches"][0]["angle"].get<double>(), 17, 3);
}

TEST_F(Locate, TellsWhenThereIsNothing) {
  EXPECT_EQ(QuillonJson({"locate", pattern_, nothing_})["matches"].size(), 0u);
  const Answer flat = Quillon({"locate", nothing_, straight_});
  EXPECT_EQ(flat.exitCode, 1);
  EXPECT_NE(flat.err.find("has no edges"), std::string::npos) << flat.err;
  EXPECT_EQ(Quillon({"locate", pattern_, straight_, "--angle", "9", "-9"}).exitCode, 2);
  EXPECT_EQ(Quillon({"locate", pattern_, straight_, "--min-score", "1.1"}).exitCode, 2);
  EXPECT_EQ(Quillon({"locate", pattern_, straight_, "--greediness", "1"}).exitCode, 2);
}

TEST_F(Locate, ReportShowsTheEdgesInBothPictures) {
  const std::string page = folder_ / "page.html";
  ASSERT_EQ(Quillon({"locate", pattern_, straight_, "--report", page}).exitCode, 0);
  const std::string text = ReadText(page);
  EXPECT_NE(text.find("Taught edges"), std::string::npos);
  EXPECT_EQ(Count(text, "data:image/png"), 2u);
}

}  // namespace quillon::test
