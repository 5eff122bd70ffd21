// quillon match on drawn scenes whose poses are known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <regex>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/images/image_files.h"
#include "quillon/quillon.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;

class Match : public testing::Test {
 protected:
  // Draws the scene into the files.
  std::vector<Truth> Draw(const SceneSpec& spec) {
    GreyImage pattern, scene;
    auto truths = MakeScene(spec, pattern, scene);
    kit::WriteImage(pattern_, pattern);
    kit::WriteImage(scene_, scene);
    return truths;
  }

  Json Matches(const std::vector<std::string>& options = {},
               const std::string& command = "match") const {
    std::vector<std::string> arguments = {command, pattern_, scene_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return QuillonJson(arguments)["matches"];
  }

  Scratch folder_;
  std::string pattern_ = folder_ / "template.png", scene_ = folder_ / "scene.png";
};

double Distance(const Json& match, double x, double y) {
  return std::hypot(match["x"].get<double>() - x, match["y"].get<double>() - y);
}

// One match for each truth, and no other.
void ExpectEach(const std::vector<Truth>& truths, const Json& matches) {
  EXPECT_EQ(matches.size(), truths.size());
  for (const Truth& truth : truths) {
    int found = 0;
    for (const Json& match : matches) {
      found += Distance(match, truth.x, truth.y) < 0.3 &&
               std::abs(match["angle"].get<double>() - truth.angle) < 0.3 &&
               std::abs(match["scale"].get<double>() - truth.scale) < 0.01;
    }
    EXPECT_EQ(found, 1) << truth.x << ", " << truth.y << " at " << truth.angle << " x "
                        << truth.scale << " in " << matches;
  }
}

// Copies the pattern into the image with its top left pixel at (left, top).
template <class Pixel>
void Paste(const CImage<Pixel>& pattern, int left, int top, CImage<Pixel>& image) {
  const int bytes = pattern.bpp / 8;
  for (int y = 0; y < pattern.height; ++y) {
    std::copy_n(pattern.rows[y], pattern.width * bytes, image.rows[top + y] + left * bytes);
  }
}

}  // namespace

TEST_F(Match, FindsPlacesAnglesAndScales) {
  auto truths = Draw({.templateWidth = 48,
                      .templateHeight = 40,
                      .width = 320,
                      .height = 240,
                      .instances = 4,
                      .seed = 3});
  ExpectEach(truths, Matches());
  const Json two = Matches({"--max", "2"}), all = Matches();
  ASSERT_EQ(two.size(), 2u);
  EXPECT_EQ(two[0], all[0]);
  EXPECT_EQ(two[1], all[1]);
  EXPECT_GE(two[0]["score"], two[1]["score"]);
  EXPECT_EQ(all[0]["angle"], 0);

  truths = Draw({.templateWidth = 64,
                 .templateHeight = 56,
                 .width = 400,
                 .height = 300,
                 .instances = 3,
                 .angleMin = -40,
                 .angleMax = 25,
                 .scaleMin = 0.85,
                 .scaleMax = 1.15,
                 .seed = 4});
  ExpectEach(truths, Matches({"--angle", "-40", "25", "--scale", "0.85", "1.15"}));
  const Answer table = Quillon({"match", pattern_, scene_, "--angle", "-40", "25"});
  EXPECT_EQ(table.exitCode, 0);
  EXPECT_NE(table.out.find("score"), std::string::npos) << table.out;
}

TEST_F(Match, ColoursTellApartWhatIsEquallyGrey) {
  Draw({.templateWidth = 40, .templateHeight = 40, .width = 200, .height = 150, .seed = 6});
  GreyImage greyPattern, greyed;
  kit::ReadImage(pattern_, greyPattern);
  ColourImage pattern, twin, scene;
  Colourise(greyPattern, pattern);
  IxColorToGray(&pattern, &greyed);
  twin.Create(greyed.width, greyed.height);
  for (int y = 0; y < greyed.height; ++y) {
    for (int x = 0; x < 3 * greyed.width; ++x) twin.rows[y][x] = greyed.rows[y][x / 3];
  }
  Fill(scene, 200, 150, Content::kNoise);
  Paste(pattern, 20, 30, scene);
  Paste(twin, 120, 90, scene);
  kit::WriteImage(pattern_, pattern);
  kit::WriteImage(scene_, scene);

  EXPECT_EQ(Matches().size(), 2u);
  const Json coloured = Matches({}, "match-color");
  ASSERT_EQ(coloured.size(), 1u);
  EXPECT_LT(Distance(coloured[0], 39.5, 49.5), 0.05);
}

TEST_F(Match, MaskedPixelsDoNotCount) {
  Draw({.templateWidth = 48, .templateHeight = 48, .width = 200, .height = 150, .seed = 8});
  GreyImage pattern, scene, ground;
  kit::ReadImage(pattern_, pattern);
  Fill(scene, 200, 150, Content::kNoise);
  Fill(ground, 24, 48, Content::kNoise, 5);
  Paste(pattern, 90, 60, scene);
  Paste(ground, 90, 60, scene);  // the left half is of another picture
  for (int y = 0; y < 48; ++y) std::fill_n(pattern.rows[y], 24, uint8_t{0});
  kit::WriteImage(pattern_, pattern);
  kit::WriteImage(scene_, scene);

  const Json masked = Matches({"--mask"});
  ASSERT_EQ(masked.size(), 1u);
  EXPECT_LT(Distance(masked[0], 113.5, 83.5), 0.05);
  EXPECT_GT(masked[0]["score"], 0.999);
  EXPECT_EQ(Matches({"--min-score", "0.99"}).size(), 0u) << "black counts without --mask";
}

// A template that is looked for at half its size has a quarter of its pixels at every level.
TEST_F(Match, StartsLowerForSmallerScales) {
  const auto truths = Draw({.templateWidth = 128,
                            .templateHeight = 110,
                            .width = 320,
                            .height = 240,
                            .instances = 3,
                            .scaleMin = 0.4,
                            .scaleMax = 0.6,
                            .seed = 5});
  const auto start = [&](const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"match", pattern_, scene_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return QuillonJson(arguments)["start"].get<int>();
  };
  EXPECT_EQ(start({}), 3);
  EXPECT_EQ(start({"--scale", "0.4", "0.6"}), 2);
  EXPECT_EQ(start({"--scale", "0.1", "0.6"}), 0);
  EXPECT_EQ(start({"--scale", "0.4", "0.6", "--level", "1"}), 1);
  ExpectEach(truths, Matches({"--scale", "0.4", "0.6"}));
  ExpectEach(truths, Matches({"--scale", "0.4", "0.6", "--level", "1"}));
}

TEST_F(Match, TellsWhenThereIsNothingAndWhatIsWrong) {
  Draw({.templateWidth = 32, .templateHeight = 32, .width = 160, .height = 120, .seed = 9});
  const std::string flat = folder_ / "flat.png";
  GreyImage image;
  Fill(image, 160, 120, Content::kFlat);
  kit::WriteImage(flat, image);
  EXPECT_EQ(QuillonJson({"match", pattern_, flat})["matches"].size(), 0u);
  EXPECT_EQ(QuillonJson({"match", flat, scene_})["matches"].size(), 0u);

  struct Case {
    std::vector<std::string> options;
    int exitCode;
    const char* message;
  };
  const Case cases[] = {
      {{"--angle", "9", "-9"}, 2, "--angle"},     {{"--scale", "2", "1"}, 2, "--scale"},
      {{"--scale", "0", "1"}, 2, "--scale"},      {{"--angle", "5"}, 2, "--angle"},
      {{"--min-score", "1.1"}, 2, "--min-score"}, {{"--max", "0"}, 2, "--max"},
      {{"--level", "7"}, 2, "--level"},           {{"--level", "3"}, 1, "level 3 is above 2"}};
  for (const Case& c : cases) {
    std::vector<std::string> arguments = {"match", pattern_, scene_};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    const Answer answer = Quillon(arguments);
    EXPECT_EQ(answer.exitCode, c.exitCode) << c.message;
    EXPECT_NE(answer.err.find(c.message), std::string::npos) << answer.err;
  }
  EXPECT_EQ(Quillon({"match", pattern_}).exitCode, 2);
}

TEST_F(Match, ReportShowsTemplateAndMatches) {
  Draw({.templateWidth = 40,
        .templateHeight = 40,
        .width = 240,
        .height = 180,
        .instances = 3,
        .seed = 10});
  const std::string page = folder_ / "page.html";
  ASSERT_EQ(Quillon({"match", pattern_, scene_, "--report", page}).exitCode, 0);
  const std::string text = ReadText(page);
  EXPECT_EQ(Count(text, "data:image/png"), 2u);
  for (const char* layer : {"Outline", "Centre", "Score"})
    EXPECT_GE(Count(text, layer), 1u) << layer;
}

// A low score could be taken for a fault of the files, and silence for anything.
TEST(Matches, NothingFoundSaysSoAndHowGoodTheBestPlaceWas) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "."}).exitCode, 0);
  for (const char* command : {"match", "match-color", "find", "locate"}) {
    const std::vector<std::string> search = {command, scratch / "bracket.png",
                                             scratch / "board.png"};
    const std::string text = Quillon(search).out;
    EXPECT_TRUE(std::regex_search(text, std::regex("Matches +0\n"))) << text;
    EXPECT_TRUE(std::regex_search(text, std::regex("Score of the best place +0\\.[0-4]"))) << text;
  }
  for (const char* command : {"match", "find"}) {
    const Answer large = Quillon({command, scratch / "tray.png", scratch / "bracket.png"});
    EXPECT_EQ(large.exitCode, 1) << large.out;
    EXPECT_NE(large.err.find("larger than the picture, 150 x 150"), std::string::npos) << large.err;
  }
}

}  // namespace quillon::test
