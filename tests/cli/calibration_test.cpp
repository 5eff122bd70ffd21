// Flat field, shading and lens: files that are read back, pictures, wrong usage.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include "cli/host.h"
#include "kit/files/checksum.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/recipe/inspector.h"
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

// Three dark and two white pictures, at folder/d0.png and so on: noise over light that falls off
// towards the sides. Pixels of `dead` are black in all of them, that of `full` is 255 in the white
// ones.
struct ShadingPictures {
  ShadingPictures(const Scratch& folder, int width, int height,
                  const std::vector<std::pair<int, int>>& dead = {},
                  std::pair<int, int> full = {-1, -1}) {
    Random random(7);
    for (int i = 0; i < 5; ++i) {
      const bool isWhite = i >= 3;
      GreyImage image;
      image.Create(width, height);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const int light = isWhite ? 200 - 160 * std::abs(x - width / 2) / width : 0;
          image.rows[y][x] = static_cast<uint8_t>(random.Within(3, 9) + light);
        }
      }
      for (const auto& [x, y] : dead) image.rows[y][x] = 0;
      if (isWhite && full.first >= 0) image.rows[full.second][full.first] = 255;
      const std::string path = folder / ((isWhite ? "w" : "d") + std::to_string(i) + ".png");
      kit::WriteImage(path, image);
      (isWhite ? whiteFiles : darkFiles).push_back(path);
      std::vector<double>& mean = isWhite ? white : dark;
      mean.resize(static_cast<size_t>(width) * height);
      for (size_t k = 0; k < mean.size(); ++k) {
        mean[k] += image.rows[k / width][k % width] / (isWhite ? 2.0 : 3.0);
      }
    }
  }

  std::vector<std::string> Command(const std::string& file,
                                   const std::vector<std::string>& options = {}) const {
    std::vector<std::string> command = {"calibrate-shading", file, "--dark"};
    command.insert(command.end(), darkFiles.begin(), darkFiles.end());
    command.push_back("--white");
    command.insert(command.end(), whiteFiles.begin(), whiteFiles.end());
    command.insert(command.end(), options.begin(), options.end());
    return command;
  }

  std::vector<std::string> darkFiles, whiteFiles;
  std::vector<double> dark, white;  // means
};

TEST(CalibrationCommands, ShadingIsItsFormulaAndDeadPixelsTakeTheirNeighbours) {
  constexpr int kWidth = 61, kHeight = 40;
  const Scratch scratch;
  const std::string file = scratch / "shading", in = scratch / "in.png", out = scratch / "out.png";
  // A corner, three in a row, of which the middle one has its nearest neighbour above, and one that
  // is too bright for 8 bits.
  const std::vector<std::pair<int, int>> dead = {{0, 0}, {20, 5}, {21, 5}, {22, 5}, {30, 30}};
  const std::vector<std::pair<int, int>> from = {{1, 0}, {19, 5}, {21, 4}, {22, 4}, {29, 30}};
  const ShadingPictures pictures(scratch, kWidth, kHeight, {dead.begin(), dead.end() - 1},
                                 dead.back());
  const Answer many = Quillon(pictures.Command(file));
  EXPECT_EQ(many.exitCode, 1);
  EXPECT_NE(many.err.find("5 of 2440 pixels are dead, 2 may be: (0, 0), (20, 5), (21, 5), ...; 1 "
                          "of them are 255 in every white picture"),
            std::string::npos)
      << many.err;
  EXPECT_FALSE(std::filesystem::exists(file));

  GreyImage image, corrected, expected;
  Fill(image, kWidth, kHeight, Content::kNoise);
  kit::WriteImage(in, image);
  for (const int target : {0, 120, 255}) {
    std::vector<std::string> options = {"--max-dead", "5", "--json"};
    if (target > 0) options.insert(options.end(), {"--target", std::to_string(target)});
    const auto fit = nlohmann::json::parse(Quillon(pictures.Command(file, options)).out);
    double span = 0;
    for (size_t i = 0; i < pictures.dark.size(); ++i) span += pictures.white[i] - pictures.dark[i];
    const double level = fit["target"];
    if (target == 0) {
      EXPECT_NEAR(level, span / static_cast<double>(pictures.dark.size()), 1);
    } else {
      EXPECT_EQ(level, target);
    }
    ASSERT_EQ(fit["dead"].size(), dead.size());
    for (size_t i = 0; i < dead.size(); ++i) {
      EXPECT_EQ(fit["dead"][i]["x"], dead[i].first);
      EXPECT_EQ(fit["dead"][i]["y"], dead[i].second);
    }
    EXPECT_EQ(fit["dead"].back()["white"], 255);

    expected.Create(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const size_t i = static_cast<size_t>(y * kWidth + x);
        // Means are kept in 256ths.
        const double low = std::floor(256 * pictures.dark[i] + 0.5 + 1e-9) / 256;
        const double high = std::floor(256 * pictures.white[i] + 0.5 + 1e-9) / 256;
        const double grey = level * (image.rows[y][x] - low) / (high - low);
        expected.rows[y][x] =
            static_cast<uint8_t>(std::clamp(std::floor(grey + 0.5 + 1e-12), 0.0, 255.0));
      }
    }
    for (size_t i = 0; i < dead.size(); ++i) {
      expected.rows[dead[i].second][dead[i].first] = expected.rows[from[i].second][from[i].first];
    }
    const std::string page = scratch / "page.html";
    ASSERT_EQ(Quillon({"shading", in, out, "--parameters", file, "--report", page}).exitCode, 0);
    kit::ReadImage(out, corrected);
    EXPECT_SAME_PIXELS(corrected, expected) << target;
    EXPECT_NE(ReadText(page).find("dead pixels"), std::string::npos);
  }

  kit::recipe::Problems problems;
  const kit::recipe::Recipe recipe = kit::recipe::ParseRecipe(
      R"({"name": "r", "steps": [{"name": "even", "operation": "shading", "input": "image",
          "parameters": "shading"}],
          "measurements": [{"name": "mean", "input": "even", "value": "mean"}]})",
      problems);
  kit::recipe::Inspector inspector(recipe, scratch / ".");
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(inspector.Inspect(image).error, "");
    EXPECT_SAME_PIXELS(inspector.Of(recipe.steps[0].output).picture, expected);
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
  const std::string page = scratch / "page.html";
  WriteText(csv, points);
  kit::WriteImage(in, bent);
  const auto fit = QuillonJson({"calibrate-lens", csv, lens, "--step", std::to_string(kStep),
                                "--image", in, "--pitch", "5", "--report", page});
  EXPECT_EQ(fit["points"].size(), 81u);
  EXPECT_GT(fit["rms"], 0.1) << "points are kept to the nearest pixel";
  EXPECT_LT(fit["worst"], 0.8);
  EXPECT_DOUBLE_EQ(fit["worstUnit"], fit["worst"].get<double>() * 5 / kStep);
  EXPECT_NE(ReadText(page).find("Residual"), std::string::npos);
  const Answer applied = Quillon({"undistort", in, out, "--parameters", lens});
  ASSERT_EQ(applied.exitCode, 0) << applied.err;
  EXPECT_EQ(applied.err, "");
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
  // A dot is off by what its place was rounded, a quarter of them together is not. In the other
  // three the library's map rounds towards the centre: up to a pixel off, always the same way.
  double lit = 0, right = 0, down = 0;
  for (int row = -3; row <= -1; ++row) {
    for (int column = 1; column <= 3; ++column) {
      for (int dy = -8; dy <= 8; ++dy) {
        for (int dx = -8; dx <= 8; ++dx) {
          const bool isLit = straight.rows[kY + row * kStep + dy][kX + column * kStep + dx] > 0;
          lit += isLit;
          right += isLit ? dx : 0;
          down += isLit ? dy : 0;
        }
      }
    }
  }
  EXPECT_NEAR(right / lit, 0, 0.2);
  EXPECT_NEAR(down / lit, 0, 0.2);
}

// A file of another kind, of another picture, half, changed, or of which nobody says what it is
// for.
TEST(CalibrationCommands, ParameterFilesAreJudged) {
  const Scratch scratch;
  const std::string in = scratch / "in.png", small = scratch / "small.png",
                    low = scratch / "low.png";
  const std::string lens = scratch / "lens.bin", gains = scratch / "gains.bin";
  const std::string csv = scratch / "points.csv", out = scratch / "out.png";
  GreyImage image;
  Fill(image, 400, 300, Content::kNoise);
  kit::WriteImage(in, image);
  Fill(image, 400, 299, Content::kNoise);
  kit::WriteImage(low, image);
  Fill(image, 120, 100, Content::kNoise);
  kit::WriteImage(small, image);
  const auto point = [](int column, int row) {
    return std::to_string(100 + 100 * column) + "," + std::to_string(50 + 100 * row) + "\n";
  };
  std::string rows, columns, mirrored, swapped;
  for (int i = 0; i < 9; ++i) {
    rows += point(i % 3, i / 3);
    columns += point(i / 3, i % 3);
    mirrored += point(2 - i % 3, i / 3);
    swapped += point(i == 4 ? 2 : i == 5 ? 1 : i % 3, i / 3);
  }
  WriteText(csv, rows);
  ASSERT_EQ(Quillon({"calibrate-lens", csv, lens, "--step", "100", "--image", in}).exitCode, 0);
  ASSERT_EQ(Quillon({"calibrate-flat-field", in, gains, "--target", "90"}).exitCode, 0);
  const std::string lensBytes = kit::ReadFile(lens), lensAbout = kit::ReadFile(lens + ".json");
  const std::string gainBytes = kit::ReadFile(gains), gainAbout = kit::ReadFile(gains + ".json");
  std::string moved = lensBytes, notANumber = lensBytes, otherGain = gainBytes, far = lensBytes;
  moved[24] = static_cast<char>(moved[24] + 1);  // the centre
  far[26] = 1;
  notANumber.replace(48 + 6, 2, "\xF0\x7F");
  otherGain[24 + 8 * 100 + 6] = static_cast<char>(otherGain[24 + 8 * 100 + 6] ^ 1);

  const ShadingPictures pictures(scratch, 400, 300);
  const std::string even = scratch / "shading";
  ASSERT_EQ(Quillon(pictures.Command(even)).exitCode, 0);
  const std::string shading = kit::ReadFile(even);
  std::string flipped = shading;
  flipped[shading.size() / 2] = static_cast<char>(flipped[shading.size() / 2] ^ 1);
  // Words of the shading file replaced, and its checksum made anew.
  const auto changed = [&](const std::string& words, const std::string& by) {
    std::string text = shading.substr(0, shading.size() - kit::Checksum::kDigits);
    text.replace(text.find(words), words.size(), by);
    kit::Checksum sum;
    sum.Add(text);
    return text + sum.Text();
  };
  std::string allDead = shading.substr(0, shading.find('\n') + 1) + std::string(4 * 400 * 300, 1);
  std::string noPixel = allDead;
  noPixel[allDead.size() - 1] = '\xFF';
  for (std::string* text : {&allDead, &noPixel}) {
    kit::Checksum sum;
    sum.Add(*text);
    *text += sum.Text();
  }

  const std::string file = scratch / "parameters";
  struct Case {
    const char* operation;
    std::string bytes, about, image;  // about: empty for no JSON file
    int exitCode;
    const char* words;
  };
  const Case cases[] = {
      {"undistort", lensBytes, lensAbout, in, 0, ""},
      {"undistort", lensBytes, "", in, 0, "quillon: note: '"},
      {"undistort", lensBytes, lensAbout, small, 1,
       "for pictures of 400 x 300, this one has 120 x 100"},
      {"undistort", lensBytes, lensAbout, low, 1,
       "for pictures of 400 x 300, this one has 400 x 299"},
      {"undistort", lensBytes, "", small, 1, "not in a picture of 120 x 100"},
      {"undistort", gainBytes, "", in, 1, "is no lens file: it has 2072 bytes, not 208"},
      {"undistort", lensBytes.substr(0, 100), "", in, 1, "it has 100 bytes, not 208"},
      {"undistort", "", "", in, 1, "it has 0 bytes"},
      {"undistort", std::string(208, '\0'), "", in, 1, "its rectangle of 0 x 0"},
      {"undistort", std::string(208, 'x'), "", in, 1, "no place in a picture"},
      {"undistort", far, "", in, 1, "its centre is not in its rectangle"},
      {"undistort", notANumber, "", in, 1, "a coefficient is no number"},
      {"undistort", moved, lensAbout, in, 1, "belongs to another file"},
      {"undistort", lensBytes, gainAbout, in, 1, "does not say that"},
      {"undistort", lensBytes, "{", in, 1, "does not say that"},
      {"flat-field", gainBytes, gainAbout, in, 0, ""},
      {"flat-field", gainBytes, "", in, 0, "quillon: note: '"},
      {"flat-field", gainBytes, gainAbout, small, 1, "for pictures of 400 x 300"},
      {"flat-field", gainBytes, "", small, 1, "outside the picture of 120 x 100"},
      {"flat-field", lensBytes, "", in, 1, "is no flat-field file: it has 208 bytes, not 2072"},
      {"flat-field", otherGain, "", in, 1, "its gain for level 100 is not that of level 1"},
      {"flat-field", std::string(2072, '\0'), "", in, 1, "its region is empty"},
      {"shading", shading, "", in, 0, ""},
      {"shading", shading, "", low, 1, "for pictures of 400 x 300, this one has 400 x 299"},
      {"shading", "", "", in, 1, "is no shading file: it does not begin with a line that says so"},
      {"shading", gainBytes, gainAbout, in, 1, "it does not begin with a line that says so"},
      {"shading", shading.substr(0, 30), "", in, 1, "it does not begin with a line that says so"},
      {"shading", shading.substr(0, 5000), "", in, 1, "it has 5000 bytes, not 480"},
      {"shading", shading + "\n", "", in, 1, " bytes, not 480"},
      {"shading", flipped, "", in, 1, "its checksum is wrong: it was changed"},
      {"shading", changed("\"width\":400", "\"width\":0.5"), "", in, 1, "which size of pictures"},
      {"shading", changed("\"target\":", "\"target\":-"), "", in, 1,
       "its target is no whole number"},
      {"shading", noPixel, "", in, 1, "its levels at (399, 299) are those of no pixel"},
      {"shading", allDead, "", in, 1, "all of its pixels are dead"},
  };
  for (const Case& c : cases) {
    WriteText(file, c.bytes);
    std::filesystem::remove(file + ".json");
    if (!c.about.empty()) WriteText(file + ".json", c.about);
    const Answer answer = Quillon({c.operation, c.image, out, "--parameters", file});
    EXPECT_EQ(answer.exitCode, c.exitCode) << c.operation << answer.err;
    EXPECT_NE(answer.err.find(c.words), std::string::npos) << c.words << ": " << answer.err;
    EXPECT_EQ(answer.err.empty(), *c.words == '\0') << answer.err;
  }

  const std::string black = pictures.darkFiles[0], bright = pictures.whiteFiles[0];
  const std::pair<std::vector<std::string>, const char*> shadings[] = {
      {{"--dark", black, low, "--white", bright},
       "for pictures of 400 x 300, this one has 400 x 299"},
      {{"--dark", low, "--white", bright},
       "the dark pictures have 400 x 299 pixels, the white ones 400 x 300"},
      {{"--dark", bright, "--white", black},
       "the white pictures are not brighter than the dark ones: their means are 6"},
  };
  std::filesystem::remove(even);
  for (const auto& [arguments, words] : shadings) {
    std::vector<std::string> command = {"calibrate-shading", even};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Answer answer = Quillon(command);
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_NE(answer.err.find(words), std::string::npos) << answer.err;
    EXPECT_FALSE(std::filesystem::exists(even));
  }

  std::filesystem::remove(lens);
  const std::pair<std::string, const char*> grids[] = {
      {columns, "point 2 (100, 150) does not lie right of point 1 (100, 50)"},
      {mirrored, "point 2 (200, 50) does not lie right of point 1 (300, 50)"},
      {swapped, "point 5 (300, 150) does not lie below point 2 (200, 50)"},
  };
  for (const auto& [points, words] : grids) {
    WriteText(csv, points);
    const Answer answer = Quillon({"calibrate-lens", csv, lens, "--step", "100"});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_NE(answer.err.find(words), std::string::npos) << answer.err;
    EXPECT_FALSE(std::filesystem::exists(lens));
  }
  std::string bent;
  for (int i = 0; i < 49; ++i) {
    bent += std::to_string(60 * (i % 7)) + "," + std::to_string(60 * (i / 7) + 20 * (i % 2)) + "\n";
  }
  WriteText(csv, bent);
  const Answer answer =
      Quillon({"calibrate-lens", csv, lens, "--step", "60", "--max-residual", "5"});
  EXPECT_EQ(answer.exitCode, 1);
  EXPECT_NE(answer.err.find("beyond 5.0"), std::string::npos) << answer.err;
  EXPECT_FALSE(std::filesystem::exists(lens));
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
       {"calibrate-flat-field", in, out, "--target", "0"},
       2,
       {"'0' is not a whole number from 1 to 255"}},
      {"",
       {"calibrate-flat-field", in, out, "--target", "9", "--region", "5", "5", "0", "9"},
       1,
       {"--region", "5"}},
      {"", {"flat-field", in, out, "--parameters", missing}, 1, {"missing.bin"}},
      {"", {"undistort", in, out, "--parameters", missing}, 1, {"missing.bin"}},
      {"1,2\n3,4\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {csv, "2 points", "odd"}},
      {"1,2\n,3,4\n",
       {"calibrate-lens", csv, out, "--step", "9"},
       1,
       {csv, "line 2", "',3,4' is not a point x,y"}},
      {"1,2\n3;4\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {"line 2", "3;4"}},
      {"1,2\n3,99999\n", {"calibrate-lens", csv, out, "--step", "9"}, 1, {"99999", "32767"}},
      {"1,2\n", {"calibrate-lens", csv, out, "--step", "0"}, 2, {"--step", "0"}},
      {"1,1\n9,1\n21,1\n1,4\n9,4\n21,4\n1,9\n9,9\n21,9\n",
       {"calibrate-lens", csv, out, "--step", "9", "--image", in},
       1,
       {"point 3 (21, 1)", "picture of 20 x 10"}},
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
