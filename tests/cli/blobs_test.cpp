// quillon blobs, against the truth of drawn samples and against a plain flood fill.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/images/image_files.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;

// ---- the plain reference ------------------------------------------------------------------------

// Area, left, top, right, bottom, sums of columns, rows and grey values.
using Blob = std::array<int64_t, 8>;
using Mask = std::vector<std::vector<bool>>;

struct Rectangle {
  int left, top, right, bottom;
};

// Calls visit for every pixel of the mask that is reached from (x, y) and clears it. 8 neighbours.
void Flood(Mask& mask, int x, int y, const std::function<void(int, int)>& visit) {
  const int height = static_cast<int>(mask.size()), width = static_cast<int>(mask[0].size());
  std::vector<std::pair<int, int>> open = {{x, y}};
  mask[y][x] = false;
  while (!open.empty()) {
    const auto [cx, cy] = open.back();
    open.pop_back();
    visit(cx, cy);
    for (int ny = std::max(0, cy - 1); ny <= std::min(height - 1, cy + 1); ++ny) {
      for (int nx = std::max(0, cx - 1); nx <= std::min(width - 1, cx + 1); ++nx) {
        if (mask[ny][nx]) mask[ny][nx] = false, open.emplace_back(nx, ny);
      }
    }
  }
}

Mask InBand(const GreyImage& image, int low, int high) {
  Mask mask(image.height, std::vector<bool>(image.width));
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      mask[y][x] = image.rows[y][x] >= low && image.rows[y][x] <= high;
    }
  }
  return mask;
}

// What no path of zeros connects to the outside becomes true.
Mask Filled(const Mask& mask) {
  const int height = static_cast<int>(mask.size()), width = static_cast<int>(mask[0].size());
  Mask outside(height + 2, std::vector<bool>(width + 2, true));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) outside[y + 1][x + 1] = !mask[y][x];
  }
  Mask filled(height, std::vector<bool>(width, true));
  Flood(outside, 0, 0, [&](int x, int y) {
    if (x >= 1 && y >= 1 && x <= width && y <= height) filled[y - 1][x - 1] = false;
  });
  return filled;
}

std::vector<Blob> Reference(const GreyImage& image, Mask mask, Rectangle region) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (x < region.left || x > region.right || y < region.top || y > region.bottom) {
        mask[y][x] = false;
      }
    }
  }
  std::vector<Blob> blobs;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      if (!mask[y][x]) continue;
      Blob blob = {0, x, y, x, y, 0, 0, 0};
      Flood(mask, x, y, [&](int px, int py) {
        blob = {blob[0] + 1,
                std::min<int64_t>(blob[1], px),
                std::min<int64_t>(blob[2], py),
                std::max<int64_t>(blob[3], px),
                std::max<int64_t>(blob[4], py),
                blob[5] + px,
                blob[6] + py,
                blob[7] + image.rows[py][px]};
      });
      blobs.push_back(blob);
    }
  }
  std::sort(blobs.begin(), blobs.end());
  return blobs;
}

// The same of what the host printed. The sum of columns comes back whole where the host lost half a
// pixel a run, so it is compared apart.
void ExpectSameBlobs(const Json& found, const std::vector<Blob>& expected,
                     const std::string& what) {
  std::vector<Blob> blobs;
  for (const Json& blob : found["blobs"]) {
    const int64_t area = blob["area"];
    const auto sum = [&](const char* key) {
      return std::llround(blob[key].get<double>() * static_cast<double>(area));
    };
    blobs.push_back({area, blob["left"], blob["top"], blob["right"], blob["bottom"], sum("x"),
                     sum("y"), sum("mean")});
  }
  std::sort(blobs.begin(), blobs.end());
  ASSERT_EQ(blobs.size(), expected.size()) << what;
  for (size_t i = 0; i < blobs.size(); ++i) {
    Blob ours = blobs[i], theirs = expected[i];
    EXPECT_LE(std::abs(ours[5] - theirs[5]), (theirs[0] + 1) / 2) << what << ", blob " << i;
    ours[5] = theirs[5] = 0;
    EXPECT_EQ(ours, theirs) << what << ", blob " << i;
  }
}

// ---- tests --------------------------------------------------------------------------------------

TEST(Blobs, EveryPixelOfASampleIsFoundAsDrawn) {
  for (const char* seed : {"1", "7"}) {
    const Scratch scratch;
    ASSERT_EQ(Quillon({"sample", scratch / "tray", "--seed", seed}).exitCode, 0);
    const std::string image = scratch / "tray/tray.png";
    const Json truth = Json::parse(ReadText(scratch / "tray/tray.json"));
    EXPECT_EQ(truth["blobs"].size(), 28u);
    const auto number = [&](const char* key) { return std::to_string(truth[key].get<int>()); };
    const std::vector<std::string> commands[] = {
        {"blobs", image}, {"blobs", image, "--band", number("low"), number("high")}};
    for (const auto& command : commands) {
      const Json found = QuillonJson(command);
      const auto sorted = [](const Json& blobs) {
        std::vector<std::array<int64_t, 5>> all;
        for (const Json& b : blobs) {
          all.push_back({b["top"], b["left"], b["right"], b["bottom"], b["area"]});
        }
        std::sort(all.begin(), all.end());
        return all;
      };
      EXPECT_EQ(sorted(found["blobs"]), sorted(truth["blobs"])) << "seed " << seed;
      EXPECT_EQ(found["found"], truth["blobs"].size());
    }
  }
}

TEST(Blobs, AreThoseOfAFloodFillInEveryRegion) {
  const Scratch scratch;
  const std::string path = scratch / "in.png";
  const Size sizes[] = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {33, 17}, {64, 40}, {131, 50}};
  uint32_t seed = 1;
  for (const auto [width, height] : sizes) {
    for (const int density : {40, 60}) {
      GreyImage image;
      Fill(image, width, height, Content::kNoise, ++seed);
      kit::WriteImage(path, image);
      const int low = 256 * (100 - density) / 100;
      std::vector<std::string> command = {"blobs", path, "--band", std::to_string(low), "255"};
      const Mask mask = InBand(image, low, 255);
      const Rectangle whole = {0, 0, width - 1, height - 1};
      const std::string size = std::to_string(width) + " x " + std::to_string(height);
      ExpectSameBlobs(QuillonJson(command), Reference(image, mask, whole), size);

      command.push_back("--fill-holes");
      ExpectSameBlobs(QuillonJson(command), Reference(image, Filled(mask), whole),
                      size + " filled");
      command.pop_back();

      // In either order, up to the last column, and beyond every side.
      const std::array<std::vector<std::string>, 3> polygons = {{
          {"3,2", "32767,2", "32767,12", "3,12"},
          {"3,2", "3,12", "32,12", "32,2"},
          {"-5,-9", "-5,70", "10,70", "10,-9"},
      }};
      const Rectangle regions[] = {{3, 2, 32767, 12}, {3, 2, 32, 12}, {-5, -9, 10, 70}};
      for (size_t i = 0; i < polygons.size() && width >= 33; ++i) {
        auto inside = command;
        inside.push_back("--polygon");
        inside.insert(inside.end(), polygons[i].begin(), polygons[i].end());
        ExpectSameBlobs(QuillonJson(inside), Reference(image, mask, regions[i]),
                        size + ", region " + std::to_string(i));
      }
    }
  }
}

TEST(Blobs, MeansCountOnlyWhatLiesInThePicture) {
  const Scratch scratch;
  const std::string path = scratch / "in.png";
  ColourImage image;
  image.Create(30, 20);
  for (int y = 0; y < 20; ++y) {
    for (int x = 0; x < 30; ++x) {
      unsigned char* pixel = image.rows[y] + 3 * x;
      pixel[0] = 10, pixel[1] = 100, pixel[2] = 200;
    }
  }
  kit::WriteImage(path, image);
  for (const bool beyond : {false, true}) {
    std::vector<std::string> command = {"blobs", path, "--band", "0", "255"};
    if (beyond) command.insert(command.end(), {"--polygon", "20,-4", "90,-4", "90,60", "20,60"});
    const Json found = QuillonJson(command);
    ASSERT_EQ(found["blobs"].size(), 1u);
    EXPECT_EQ(found["blobs"][0]["area"], beyond ? 10 * 20 : 30 * 20);
    for (const auto& [channel, value] : {std::pair{"red", 200}, {"green", 100}, {"blue", 10}}) {
      EXPECT_NEAR(found[channel].get<double>(), value, 1e-9) << beyond;
      EXPECT_EQ(found["blobs"][0][channel], value) << beyond;
    }
  }
}

TEST(Blobs, SelectionsKeepWhatTheirBoundsSay) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "."}).exitCode, 0);
  const std::string path = scratch / "tray.png";
  const Json all = QuillonJson({"blobs", path})["blobs"];
  struct Case {
    std::vector<std::string> options;
    std::function<bool(const Json&)> keeps;
  };
  const auto within = [](const char* key, double low, double high) {
    return [=](const Json& b) { return b[key] >= low && b[key] <= high; };
  };
  const Case cases[] = {
      {{"--min-area", "4986"}, within("area", 4986, 1e9)},
      {{"--max-area", "4986"}, within("area", 0, 4986)},
      {{"--min-width", "60", "--max-width", "91"}, within("width", 60, 91)},
      {{"--min-height", "91", "--max-height", "120"}, within("height", 91, 120)},
      {{"--center-x", "300", "800"}, within("x", 300, 800)},
      {{"--center-y", "-9", "400"}, within("y", -9, 400)},
      {{"--min-area", "4000", "--max-width", "100", "--center-x", "0", "500"},
       [](const Json& b) { return b["area"] >= 4000 && b["width"] <= 100 && b["x"] <= 500; }},
      {{"--min-area", "1000000", "--max-width", "100"}, [](const Json&) { return false; }},
  };
  for (const Case& test : cases) {
    std::vector<std::string> command = {"blobs", path};
    command.insert(command.end(), test.options.begin(), test.options.end());
    Json expected = Json::array();
    for (const Json& blob : all) {
      if (test.keeps(blob)) expected.push_back(blob);
    }
    const Json found = QuillonJson(command);
    EXPECT_EQ(found["blobs"], expected) << test.options[0];
    EXPECT_EQ(found["found"], all.size());
    EXPECT_EQ(found["selected"], expected.size());
    EXPECT_LT(expected.size(), all.size());
  }
}

TEST(Blobs, CsvTextAndReportTellTheSameAsJson) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "."}).exitCode, 0);
  const std::string path = scratch / "tray.png", report = scratch / "out.html";
  const Json blobs = QuillonJson({"blobs", path, "--report", report})["blobs"];
  const std::string csv = Quillon({"blobs", path, "--csv"}).out;
  const auto records = ParseCsv(csv);
  const std::string text = Quillon({"blobs", path}).out;
  const std::string page = ReadText(report);
  EXPECT_EQ(PageCsv(page), csv);
  const Json picture = PageData(page)["pictures"][0];
  ASSERT_EQ(records.size(), blobs.size() + 1);
  for (size_t i = 0; i < blobs.size(); ++i) {
    ASSERT_EQ(records[0].size(), blobs[i].size());
    for (size_t c = 0; c < records[0].size(); ++c) {
      EXPECT_EQ(std::stod(records[i + 1][c]), blobs[i][records[0][c]].get<double>());
    }
    const std::string number = std::to_string(i), area = blobs[i]["area"].dump();
    EXPECT_NE(text.find("\n" + std::string(2 - number.size(), ' ') + number + "  " + area),
              std::string::npos);
    const int row = static_cast<int>(i);
    for (const DrawnKind kind : {kDrawnBox, kDrawnPolygon, kDrawnCross, kDrawnLabel}) {
      EXPECT_EQ(CountDrawn(picture, kind, row), 1u) << number << " lacks a drawing " << kind;
    }
    EXPECT_EQ(picture["drawings"][4 * i + 3].back(), number);
  }
}

TEST(Blobs, DrawingsSurroundTheirBlobsInTheirColours) {
  const Scratch scratch;
  GreyImage image;
  image.Create(60, 50);
  for (int y = 20; y <= 27; ++y) {
    for (int x = 30; x <= 44; ++x) image.rows[y][x] = 255;
  }
  kit::WriteImage(scratch / "in.png", image);
  const Answer answer = Quillon({"blobs", scratch / "in.png", "--draw", scratch / "out.png"});
  ASSERT_EQ(answer.exitCode, 0) << answer.err;
  ColourImage drawn;
  kit::ReadImage(scratch / "out.png", drawn);
  const auto red = [&](int x, int y) { return drawn.rows[y][3 * x + 2]; };
  const int cyan = 0x22, amber = 0xfb, magenta = 0xf4, white = 0xff;
  ASSERT_EQ(drawn.width, 60);
  for (int x = 29; x <= 45; ++x) EXPECT_EQ(red(x, 28), cyan) << "box below, column " << x;
  for (int y = 19; y <= 28; ++y) EXPECT_EQ(red(45, y), cyan) << "box to the right, row " << y;
  for (int x = 30; x <= 33; ++x) EXPECT_EQ(red(x, 27), amber) << "rectangle, column " << x;
  EXPECT_EQ(red(37, 24), magenta) << "centre";
  EXPECT_EQ(red(33, 22), white) << "inside";
  EXPECT_EQ(red(46, 29), 0) << "outside";
  EXPECT_EQ(red(30, 10), white) << "the number above";
}

TEST(Blobs, MoreThanTheTablesHoldIsRefused) {
  const Scratch scratch;
  const std::string path = scratch / "dots.png";
  for (const auto& [side, message] : {std::pair{300, "22500 blobs"}, {500, "too many blobs"}}) {
    GreyImage image;
    image.Create(side, side);
    for (int y = 0; y < side; y += 2) {
      for (int x = 0; x < side; x += 2) image.rows[y][x] = 255;
    }
    kit::WriteImage(path, image);
    const Answer answer = Quillon({"blobs", path});
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_NE(answer.err.find(message), std::string::npos) << answer.err;
    const std::vector<std::string> part = {"blobs", path,    "--polygon", "0,0",
                                           "99,0",  "99,99", "0,99"};
    EXPECT_EQ(QuillonJson(part)["blobs"].size(), 2500u);
  }
}

}  // namespace
}  // namespace quillon::test
