// quillon morph, against the exported calls, and a count of real coins.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

TEST(MorphCommand, WritesWhatTheExportGives) {
  const Scratch scratch;
  const std::string in = scratch / "in.png", out = scratch / "out.png";
  GreyImage picture, image, result, written;
  Fill(picture, 61, 47, Content::kNoise);
  kit::WriteImage(in, picture);
  struct Case {
    std::vector<std::string> arguments;
    std::function<void()> call;
    const GreyImage& expected;
  };
  const Case cases[] = {
      {{"dilate", "--rect", "3", "2"}, [&] { IxDilation(&image, &image, 3, 2); }, image},
      {{"erode", "--circle", "4"}, [&] { IxErosionCircle(&image, &image, 4); }, image},
      {{"open", "--diamond", "3"}, [&] { IxOpeningDiamond(&image, &image, 3); }, image},
      {{"close", "--circle", "0"}, [] {}, picture},
      {{"gradient", "--rect", "1", "1"}, [&] { IxMorphGradient(&image, &result, 1, 1); }, result},
      {{"white-top-hat", "--diamond", "5"},
       [&] { IxMorphWhiteTopHatDiamond(&image, &result, 5); },
       result},
      {{"black-top-hat", "--circle", "5"},
       [&] { IxMorphBlackTopHatCircle(&image, &result, 5); },
       result},
  };
  for (const Case& test : cases) {
    std::vector<std::string> command = {"morph"};
    command.insert(command.end(), test.arguments.begin(), test.arguments.end());
    command.insert(command.begin() + 2, {in, out});
    const Answer answer = Quillon(command);
    ASSERT_EQ(answer.exitCode, 0) << answer.err;
    image.CopyFrom(&picture);
    test.call();
    kit::ReadImage(out, written);
    EXPECT_SAME_PIXELS(written, test.expected) << test.arguments[0];
  }
}

TEST(MorphCommand, RefusesWhatItCannotDo) {
  const Scratch scratch;
  const std::string in = scratch / "in.png", out = scratch / "out.png";
  GreyImage picture;
  Fill(picture, 2, 9, Content::kNoise);
  kit::WriteImage(in, picture);
  EXPECT_EQ(Quillon({"morph", "gradient", in, out, "--diamond", "1"}).exitCode, 1);
  EXPECT_EQ(Quillon({"morph", "dilate", in, out}).exitCode, 2);
  EXPECT_EQ(Quillon({"morph", "dilate", in, out, "--diamond", "-1"}).exitCode, 2);
  EXPECT_EQ(Quillon({"morph", "dilate", in, out, "--diamond", "1", "--circle", "1"}).exitCode, 2);
}

// A photograph of coins on a table whose light falls off: the top-hat takes the light away.
TEST(MorphCommand, CountsTheCoinsOfAPhotograph) {
  const char* data = std::getenv("QUILLON_DATA");
  const std::string coins = std::string(data ? data : "") + "/photos/coins.png";
  if (!data || !std::filesystem::exists(coins)) GTEST_SKIP() << "QUILLON_DATA has no " << coins;
  const Scratch scratch;
  const std::string flat = scratch / "flat.png", binary = scratch / "binary.png";
  ASSERT_EQ(Quillon({"morph", "white-top-hat", coins, flat, "--rect", "45", "45"}).exitCode, 0);
  ASSERT_EQ(Quillon({"otsu", flat, binary}).exitCode, 0);
  const auto found = QuillonJson({"blobs", binary, "--band", "255", "255", "--min-area", "50"});
  EXPECT_EQ(found["selected"], 24);
}

}  // namespace
}  // namespace quillon::test
