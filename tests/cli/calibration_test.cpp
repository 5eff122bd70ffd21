// Flat field and lens: files that the library reads back, pictures, wrong usage.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

TEST(CalibrationCommands, FlatFieldBringsARegionToItsTarget) {
  const Scratch scratch;
  const std::string in = scratch / "in.png", gains = scratch / "gains.bin";
  const std::string out = scratch / "out.png", page = scratch / "page.html";
  GreyImage image, expected, corrected;
  Fill(image, 60, 40, Content::kNoise);
  kit::WriteImage(in, image);
  EXPECT_EQ(Quillon({"calibrate-flat-field", in, gains, "--target", "120", "--region", "10", "50",
                     "5", "30"})
                .exitCode,
            0);
  EXPECT_EQ(Quillon({"flat-field", in, out, "--parameters", gains, "--report", page}).exitCode, 0);
  expected.CopyFrom(&image);
  int region[4];
  ASSERT_TRUE(IxFFCParaLoad(&expected, region, gains.c_str()));
  EXPECT_EQ(std::vector<int>(region, region + 4), (std::vector<int>{10, 50, 5, 30}));
  IxFFCCalibrate(&expected, 10, 50, 5, 30);
  kit::ReadImage(out, corrected);
  EXPECT_SAME_PIXELS(corrected, expected);
  for (const char* text : {"Flat field of", "Before", "After", "end column"}) {
    EXPECT_NE(ReadText(page).find(text), std::string::npos) << text;
  }
}

// A picture of dots through a barrel lens: after the correction they stand on the grid, upright.
TEST(CalibrationCommands, UndistortPutsBentDotsBackOnTheirGrid) {
  constexpr int kStep = 40, kWidth = 402, kHeight = 410, kX = 203, kY = 199;
  const Scratch scratch;
  GreyImage bent, straight;
  bent.Create(kWidth, kHeight);
  std::string points = "x,y\n";
  const auto through = [](double x, double y) {
    const double bend = 1 - 8e-7 * (x * x + y * y) + 2e-4 * y;  // and a tilt: not symmetric in y
    return std::pair{kX + x * bend, kY + y * bend};
  };
  for (int row = -4; row <= 4; ++row) {
    for (int column = -4; column <= 4; ++column) {
      const auto [x, y] = through(column * kStep, row * kStep);
      points += std::to_string(x) + "," + std::to_string(y) + "\n";
      for (int dy = -2; dy <= 2; ++dy) {
        for (int dx = -2; dx <= 2; ++dx) {
          bent.rows[std::lround(y) + dy][std::lround(x) + dx] =
              static_cast<uint8_t>(row == -4 ? 255 : 200);
        }
      }
    }
  }
  const std::string csv = scratch / "points.csv", lens = scratch / "lens.bin";
  const std::string in = scratch / "in.png", out = scratch / "out.png";
  WriteText(csv, points);
  kit::WriteImage(in, bent);
  ASSERT_EQ(Quillon({"calibrate-lens", csv, lens, "--step", std::to_string(kStep)}).exitCode, 0);
  ASSERT_EQ(Quillon({"undistort", in, out, "--parameters", lens}).exitCode, 0);
  kit::ReadImage(out, straight);
  ASSERT_EQ(straight.width, kWidth);
  ASSERT_EQ(straight.height, kHeight);
  for (int row = -4; row <= 4; ++row) {
    for (int column = -4; column <= 4; ++column) {
      EXPECT_EQ(straight.rows[kY + row * kStep][kX + column * kStep], row == -4 ? 255 : 200)
          << column << ", " << row;
    }
  }
  EXPECT_EQ(straight.rows[kY + kStep / 2][kX + kStep / 2], 0) << "between the dots";
}

TEST(CalibrationCommands, ErrorsNameWhatIsWrong) {
  const Scratch scratch;
  const std::string in = scratch / "in.png", csv = scratch / "points.csv";
  const std::string out = scratch / "out.png", missing = scratch / "missing.bin";
  GreyImage image;
  Fill(image, 20, 10, Content::kNoise);
  kit::WriteImage(in, image);
  struct Case {
    std::string points;
    std::vector<std::string> arguments;
    int exitCode;
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {"", {"calibrate-flat-field", in, out}, 2, {"--target"}},
      {"", {"calibrate-flat-field", in, out, "--target", "256"}, 2, {"256", "255"}},
      {"",
       {"calibrate-flat-field", in, out, "--target", "9", "--region", "5", "5", "0", "9"},
       1,
       {"--region", "5"}},
      {"", {"flat-field", in, out, "--parameters", missing}, 1, {missing}},
      {"", {"undistort", in, out, "--parameters", missing}, 1, {missing}},
      {"1,2\n3,4\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {csv, "2 points", "odd"}},
      {"1,2\n3;4\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {"line 2", "3;4"}},
      {"1,2\n3,99999\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {"99999", "32767"}},
      {"1,2\n", {"calibrate-lens", csv, out, "--step", "0"}, 2, {"--step", "0"}},
      {"", {"lab", in, out, "--channel", "hue"}, 2, {"hue"}},
  };
  for (const Case& test : cases) {
    WriteText(csv, test.points);
    const Answer answer = Quillon(test.arguments);
    EXPECT_EQ(answer.exitCode, test.exitCode) << answer.err;
    for (const std::string& word : test.words) {
      EXPECT_NE(answer.err.find(word), std::string::npos) << "lacks " << word << ": " << answer.err;
    }
  }
}

}  // namespace
}  // namespace quillon::test
