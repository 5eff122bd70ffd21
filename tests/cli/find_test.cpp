// quillon find and teach on drawn scenes whose poses are known.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "support/images.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

// Two parts that touch, half a turn apart, and one more: a plate with a slot and a foot on an
// even ground, from a finer grid of 4 x 4 points a pixel.
const Truth kParts[] = {{92.3, 90.6, 30, 1}, {130.869, 119.796, 210, 1}, {233.5, 160.25, -71, 1}};

void DrawPart(const Truth& at, GreyImage& image) {
  const double a = at.angle * 3.14159265358979323846 / 180, c = std::cos(a), s = std::sin(a);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      int inside = 0;
      for (int i = 0; i < 16; ++i) {
        const double dx = x + (i % 4 - 1.5) / 4 - at.x, dy = y + (i / 4 - 1.5) / 4 - at.y;
        const double u = dx * c + dy * s, v = dy * c - dx * s;
        const bool plate = std::abs(u) < 24 && v > -28 && v < 8;
        const bool slot = u > 2 && u < 16 && v > -20 && v < -8;
        const bool foot = u > -24 && u < -8 && v >= 8 && v < 28;
        inside += (plate && !slot) || foot;
      }
      const int pixel = image.rows[y][x];
      image.rows[y][x] = static_cast<uint8_t>(pixel + (210 - pixel) * inside / 16);
    }
  }
}

class Find : public testing::Test {
 protected:
  Find() {
    GreyImage image;
    Fill(image, 300, 220, Content::kFlat);
    kit::WriteImage(flat_, image);
    for (const Truth& truth : kParts) DrawPart(truth, image);
    kit::WriteImage(scene_, image);
    Fill(image, 64, 64, Content::kFlat);
    DrawPart({31.5, 31.5, 0, 1}, image);
    kit::WriteImage(part_, image);
  }

  Scratch folder_;
  std::string part_ = folder_ / "part.png", scene_ = folder_ / "scene.png";
  std::string flat_ = folder_ / "flat.png", model_ = folder_ / "part.model";
};

double Turn(double degrees) { return std::abs(std::remainder(degrees, 360)); }

TEST_F(Find, FindsTouchingTurnedPartsInBothWaysFromPictureAndModel) {
  for (const std::string way : {"edges", "gray"}) {
    const Json taught = QuillonJson({"teach", part_, model_, "--by", way});
    EXPECT_EQ(taught["by"], way);
    EXPECT_EQ(taught["width"], 64);
    const Json found = QuillonJson({"find", part_, scene_, "--by", way});
    // What the model was taught by counts where nothing is said.
    EXPECT_EQ(QuillonJson({"find", model_, scene_}), found);
    EXPECT_EQ(found["by"], way);
    const Json& matches = found["matches"];
    ASSERT_EQ(matches.size(), std::size(kParts)) << way << found;
    for (const Truth& truth : kParts) {
      int same = 0;
      for (const Json& match : matches) {
        same += std::hypot(match["x"].get<double>() - truth.x, match["y"].get<double>() - truth.y) <
                    0.1 &&
                Turn(match["angle"].get<double>() - truth.angle) < 0.2;
      }
      EXPECT_EQ(same, 1) << way << truth.x << matches;
    }

    // The options: which of the matches are left.
    const std::pair<Words, size_t> cases[] = {{{"--max", "1"}, 1},
                                              {{"--region", "228", "155", "10", "10"}, 1},
                                              {{"--region", "0", "0", "40", "220"}, 0},
                                              {{"--angle", "-75", "-65"}, 1},
                                              {{"--angle", "20", "220", "--min-score", "0.6"}, 2},
                                              {{"--scale", "1.5", "1.6"}, 0},
                                              {{"--overlap", "0"}, 2},
                                              {{"--min-score", "1"}, 0}};
    for (const auto& [options, count] : cases) {
      Words command = {"find", model_, scene_};
      command.insert(command.end(), options.begin(), options.end());
      const Json left = QuillonJson(command)["matches"];
      EXPECT_EQ(left.size(), count) << way << options[0] << options[1] << left;
    }
    EXPECT_EQ(QuillonJson({"find", model_, flat_})["matches"].size(), 0u);
  }
}

TEST_F(Find, LooksForTheOtherPolarityWhenTold) {
  const std::string negative = folder_ / "negative.png";
  ASSERT_EQ(Quillon({"invert", scene_, negative}).exitCode, 0);
  EXPECT_EQ(QuillonJson({"find", part_, negative})["matches"].size(), 0u);
  EXPECT_EQ(QuillonJson({"find", part_, negative, "--polarity", "any"})["matches"].size(), 3u);
}

TEST_F(Find, SearchesSeveralPictures) {
  const Words command = {"find", part_, scene_, flat_, scene_};
  const auto with = [&](const Words& options) {
    Words all = command;
    all.insert(all.end(), options.begin(), options.end());
    return Quillon(all);
  };
  const Json pictures = QuillonJson(command)["pictures"];
  ASSERT_EQ(pictures.size(), 3u);
  std::string rows = "image,x,y,angle,scale,score,visible\n";
  for (int i = 0; i < 3; ++i) {
    Json alone = QuillonJson({"find", part_, command[i + 2]});
    alone["image"] = command[i + 2];
    EXPECT_EQ(pictures[i], alone);
    const std::string csv = Quillon({"find", part_, command[i + 2], "--csv"}).out;
    std::istringstream lines(csv.substr(csv.find('\n') + 1));
    for (std::string line; std::getline(lines, line);) {
      rows += command[i + 2] + "," + line + "\n";
    }
  }
  EXPECT_EQ(with({"--csv"}).out, rows);
  const std::string text = with({}).out;
  EXPECT_NE(text.find("\n\n" + flat_ + "\nFound by"), std::string::npos) << text;

  const std::string kept = folder_ / "drawn.png";
  const auto refused = with({"--draw", kept});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.err.find("of one image, not of 3"), std::string::npos) << refused.err;
  EXPECT_FALSE(std::filesystem::exists(kept));
}

TEST_F(Find, TellsWhatIsWrong) {
  ASSERT_EQ(Quillon({"teach", part_, model_, "--by", "gray"}).exitCode, 0);
  const std::string bytes = ReadText(model_), cut = folder_ / "cut.model";
  const std::string changed = folder_ / "changed.model", kept = folder_ / "kept";
  WriteText(cut, bytes.substr(0, 2000));
  WriteText(kept, "kept");
  std::string other = bytes;
  other[1000] ^= 1;
  WriteText(changed, other);
  const struct {
    Words arguments;
    int exitCode;
    Words says;
  } cases[] = {
      {{"find", cut, scene_}, 1, {"cut.model", "the model is damaged"}},
      {{"find", changed, scene_}, 1, {"changed.model", "the model is damaged"}},
      {{"find", model_, scene_, "--by", "edges"}, 1, {"part.model", "by gray, not by edges"}},
      {{"find", model_, scene_, "--polarity", "any"}, 1, {"part.model", "polarity 'any'"}},
      {{"find", flat_, scene_}, 1, {"flat.png", "fewer than 12 edge points"}},
      {{"find", flat_, scene_, "--by", "gray"}, 1, {"flat.png", "no contrast"}},
      {{"find", scene_, part_}, 1, {"300 x 220", "larger than the picture, 64 x 64"}},
      {{"find", part_, scene_, "--region", "300", "9", "5", "5"},
       1,
       {"columns 300 to 304 and rows 9 to 13", "no pixel of the picture of 300 x 220"}},
      {{"find", part_, scene_, "--region", "3", "9", "0", "5"}, 2, {"--region", "[3,9,0,5]"}},
      {{"find", part_, scene_, "--scale", "0.4", "1"}, 2, {"--scale", "0.4", "0.5"}},
      {{"find", part_, scene_, "--angle", "9", "-9"}, 2, {"--angle", "low is above high"}},
      {{"find", part_, scene_, "--by", "colour"}, 2, {"--by", "colour"}},
      {{"teach", flat_, kept}, 1, {"flat.png", "edge points"}},
      {{"teach", part_, kept, "--mask", flat_}, 1, {"part.png", "64 x 64", "300 x 220"}},
      {{"teach", part_, kept, "--polygon", "9,9", "12,9", "9,12"},
       1,
       {"part.png", "polygon leave is smaller than 6 x 6"}},
      {{"teach", part_, kept, "--region", "40", "9", "30", "30"},
       1,
       {"--region", "part.png", "ends at column 70, row 39", "64 x 64"}},
      {{"find", model_, scene_, "--polygon", "9,9", "50,9", "9,50"}, 1, {"part.model", "a model"}},
  };
  for (const auto& c : cases) {
    const Answer answer = Quillon(c.arguments);
    EXPECT_EQ(answer.exitCode, c.exitCode) << c.arguments[0] << c.says[0] << answer.err;
    for (const std::string& words : c.says) {
      EXPECT_NE(answer.err.find(words), std::string::npos) << words << " in\n" << answer.err;
    }
  }
  EXPECT_EQ(ReadText(kept), "kept") << "a model that cannot be taught left a file";
}

// A template with a neighbour beside the part: what the polygon or the mask leaves out is not
// looked for, in a model as in a picture.
TEST_F(Find, LooksForWhatCountsAlone) {
  GreyImage pattern, mask;
  kit::ReadImage(part_, pattern);
  mask.Create(64, 64);
  for (int y = 0; y < 64; ++y) {
    for (int x = 0; x < 64; ++x) {
      if (x >= 58) pattern.rows[y][x] = y / 5 % 2 != 0 ? 0 : 255;
      mask.rows[y][x] = x <= 56 && y >= 2 ? 255 : 0;
    }
  }
  const std::string beside = folder_ / "beside.png", masked = folder_ / "mask.png";
  kit::WriteImage(beside, pattern);
  kit::WriteImage(masked, mask);
  const Words polygon = {"--polygon", "-9,2", "56,2", "56,99", "-9,99"};
  for (const std::string way : {"edges", "gray"}) {
    const auto find = [&](const std::string& part, const Words& more) {
      Words command = {"find", part, scene_, "--by", way};
      command.insert(command.end(), more.begin(), more.end());
      return QuillonJson(command);
    };
    const Json all = find(beside, {}), inside = find(beside, polygon);
    ASSERT_EQ(inside["matches"].size(), std::size(kParts)) << way;
    EXPECT_GT(inside["matches"][0]["score"], 0.95) << way;
    EXPECT_LT(all["matches"].empty() ? 0.0 : all["matches"][0]["score"].get<double>(), 0.9) << way;
    EXPECT_EQ(find(beside, {"--mask", masked}), inside) << way;
    Words teach = {"teach", beside, model_, "--by", way};
    teach.insert(teach.end(), polygon.begin(), polygon.end());
    QuillonJson(teach);
    EXPECT_EQ(find(model_, {}), inside) << way;
  }
}

// A stripe slides; a template full of different shapes has nothing of the kind.
// A rectangle of a picture as the template is found at its own place.
TEST_F(Find, TeachesARectangleOfAPicture) {
  const Json taught = QuillonJson({"teach", scene_, model_, "--region", "60", "58", "66", "62"});
  EXPECT_EQ(taught["width"], 66);
  EXPECT_EQ(taught["height"], 62);
  const Json best = QuillonJson({"find", model_, scene_, "--max", "1"})["matches"][0];
  EXPECT_NEAR(best["x"], 92.5, 0.1);
  EXPECT_NEAR(best["y"], 88.5, 0.1);
  EXPECT_GT(best["score"], 0.95);
}

TEST_F(Find, SaysWhatTeachingDoubts) {
  GreyImage stripe;
  Fill(stripe, 64, 64, Content::kFlat);
  for (int y = 0; y < 64; ++y) std::fill_n(stripe.rows[y] + 24, 16, uint8_t{230});
  const std::string path = folder_ / "stripe.png";
  kit::WriteImage(path, stripe);
  const Answer doubtful = Quillon({"teach", path, model_});
  EXPECT_EQ(doubtful.exitCode, 0);
  EXPECT_NE(doubtful.out.find("it slides"), std::string::npos) << doubtful.out;
  GreyImage pattern, scene;
  MakeScene({.seed = 5}, pattern, scene);
  kit::WriteImage(path, pattern);
  EXPECT_EQ(QuillonJson({"teach", path, model_})["doubts"], Json::array());
}

// Each doubt is drawn over the template, and nothing where there is no doubt.
TEST_F(Find, ShowsWhatTeachingDoubts) {
  const std::string page = folder_ / "page.html", drawn = folder_ / "drawn.png";
  const std::string path = folder_ / "shape.png";
  const auto red = [&](int x, int y) {  // how much redder than green, at the most
    ColourImage picture;
    kit::ReadImage(drawn, picture);
    int most = 0;
    for (int i = 0; i < 25; ++i) {
      const uint8_t* pixel = picture.rows[y + i / 5 - 2] + 3 * (x + i % 5 - 2);
      most = std::max(most, pixel[2] - pixel[1]);
    }
    return most;
  };
  const struct {
    std::function<bool(int x, int y)> isBright;
    int64_t symmetry;
    int x, y;  // where something is drawn
  } cases[] = {
      {[](int x, int) { return x >= 24 && x < 40; }, -1, 32, 45},                      // slides
      {[](int x, int y) { return x % 16 < 8 && y % 16 < 8; }, -1, -1, -1},             // repeats
      {[](int x, int y) { return x > 14 && x < 50 && y > 14 && y < 50; }, 4, 45, 32},  // turns
  };
  for (const auto& c : cases) {
    GreyImage image;
    Fill(image, 64, 64, Content::kFlat);
    for (int y = 0; y < 64; ++y) {
      for (int x = 0; x < 64; ++x) image.rows[y][x] = c.isBright(x, y) ? 180 : 60;
    }
    kit::WriteImage(path, image);
    const Json taught = QuillonJson({"teach", path, model_, "--report", page, "--draw", drawn});
    if (c.symmetry >= 0) {
      EXPECT_EQ(taught["symmetry"], c.symmetry);
    }
    if (c.x >= 0) {
      EXPECT_GT(red(c.x, c.y), 60) << c.x;
    }
    EXPECT_NE(ReadText(page).find("Its best false place"), std::string::npos);
  }
  ASSERT_EQ(Quillon({"teach", part_, model_, "--draw", drawn}).exitCode, 0);
  EXPECT_LT(red(32, 50), 30) << "something is drawn over a template without doubts";
}

TEST_F(Find, DrawsAndReportsEachMatch) {
  const std::string page = folder_ / "page.html", drawn = folder_ / "drawn.png";
  ASSERT_EQ(Quillon({"find", part_, scene_, "--report", page, "--draw", drawn}).exitCode, 0);
  const std::string text = ReadText(page);
  for (const char* layer : {"Outline", "Centre", "Score"}) {
    EXPECT_NE(text.find(layer), std::string::npos) << layer;
  }
  ColourImage picture;
  kit::ReadImage(drawn, picture);
  for (const Truth& truth : kParts) {
    const uint8_t* const centre = picture.rows[std::lround(truth.y)] + 3 * std::lround(truth.x);
    EXPECT_FALSE(centre[0] == centre[1] && centre[1] == centre[2]) << "no cross at " << truth.x;
  }
}

}  // namespace
}  // namespace quillon::test
