// Cameras: what boards and grids of dots, drawn as a camera with a known lens sees them, say of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "cli/drawn_trays.h"
#include "cli/drawn_views.h"
#include "cli/found.h"
#include "cli/host.h"
#include "kit/calibration/camera.h"
#include "kit/calibration/lens.h"
#include "kit/calibration/rectifier.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/recipe/inspector.h"
#include "quillon/quillon.h"

namespace quillon::test {
namespace {

using kit::Json;
using kit::Point;

// A board of squares before a camera, softened; the light falls off to the right.
void DrawBoard(const kit::Lens& lens, const kit::BoardPlace& place, GreyImage& image) {
  DrawnPicture board = PlaneView(lens, place, {400, 300}, 2).Draw([](Point at) {
    return 40 + 170 * Chessboard(at, 9, 7, 0.03);
  });
  board.Blur(1);
  for (size_t i = 0; i < board.grey.size(); ++i) board.grey[i] *= 1 - 0.4 * double(i % 400) / 400;
  std::mt19937_64 random;
  board.To(image, 0, random);
}

TEST(Cameras, AreFoundFromDrawnBoardsAndTakenOutOfPictures) {
  const Scratch scratch;
  const kit::Lens lens = {420, 415, 205, 146, {-0.2, 0.05, 0.001, -0.001, 0}};
  const kit::BoardPlace places[] = {{{0.05, -0.1, 0.15}, {-4, -3, 15}},
                                    {{0.5, 0.1, -0.2}, {-4.2, -2.6, 14}},
                                    {{-0.1, 0.5, 0.1}, {-3.6, -3.2, 15}},
                                    {{-0.3, -0.3, 0.7}, {-1.5, -4.2, 17}},
                                    {{0.1, -0.6, 0.3}, {-3, -4, 14}}};
  std::vector<std::string> command = {"calibrate", scratch / "camera.json"};
  for (const kit::BoardPlace& place : places) {
    GreyImage image;
    DrawBoard(lens, place, image);
    kit::WriteImage(command.emplace_back(scratch / (std::to_string(command.size()) + ".png")),
                    image);
  }
  const std::vector<std::string> pictures = command;
  for (const char* word : {"--board", "9", "7", "--square", "25"}) command.emplace_back(word);
  const nlohmann::json told = QuillonJson(command);
  EXPECT_LT(told["rms"], 0.12);  // as soft as they are drawn
  EXPECT_NEAR(told["fx"], lens.fx, 2);
  EXPECT_NEAR(told["fy"], lens.fy, 2);
  EXPECT_NEAR(told["cx"], lens.cx, 2);
  EXPECT_NEAR(told["cy"], lens.cy, 2);
  for (const auto& view : told["views"]) EXPECT_EQ(view["corners"], 63) << view;

  // In the plane all squares are as large as each other: that of the board, in pixels of the scale.
  GreyImage image, flat;
  kit::ReadImage(pictures[2], image);
  kit::Rectifier(scratch / "camera.json").Apply(image, flat);
  const double square = 25 / told["mmPerPixel"].get<double>();
  const auto corners = kit::FindChessboard(flat, {9, 7});
  ASSERT_EQ(corners.size(), 63u);
  double worst = 0;
  for (size_t i = 0; i + 1 < corners.size(); ++i) {
    if (corners[i].row != corners[i + 1].row) continue;
    const Point a = corners[i].at, b = corners[i + 1].at;
    worst = std::max(worst, std::abs(std::hypot(b.x - a.x, b.y - a.y) - square));
  }
  EXPECT_LT(worst, 0.15) << square;
  // Between four pixels of an even slope lies what the slope has there, to the nearest grey value.
  GreyImage slope, straight;
  slope.Create(image.width, image.height);
  for (int y = 0; y < slope.height; ++y) {
    for (int x = 0; x < slope.width; ++x) slope.rows[y][x] = uint8_t(std::min(x, 255));
  }
  kit::Rectifier(scratch / "camera.json").Apply(slope, straight);
  const kit::Camera fitted = kit::ReadCamera(scratch / "camera.json");
  const kit::RectifiedPlaces seen(fitted);
  int wrong = 0, looked = 0;
  for (int y = 0; y < slope.height; ++y) {
    for (int x = 0; x < slope.width; ++x) {
      const auto [column, row] = seen.SeenAt(x, y);
      if (column < 2 || column > 252 || row < 0 || row > slope.height - 1) continue;
      wrong += std::abs(straight.rows[y][x] - column) > 0.500001;
      ++looked;
    }
  }
  EXPECT_GT(looked, 10'000);
  EXPECT_EQ(wrong, 0);

  // The exports' table of it gives the same picture, all over: its map has whole pixels, which
  // moves all of it by one or two.
  std::vector<std::string> withTable = pictures;
  for (const char* word : {"--board", "9", "7", "--square", "25"}) withTable.emplace_back(word);
  withTable.insert(withTable.end(), {"--table", scratch / "lens.bin"});
  EXPECT_LT(QuillonJson(withTable)["tableWorst"], 2);
  GreyImage tabled;
  kit::LensCorrection(scratch / "lens.bin").Apply(image, tabled);
  const auto same = kit::FindChessboard(tabled, {9, 7});
  ASSERT_EQ(same.size(), corners.size());
  Point moved = {0, 0};
  for (size_t i = 0; i < same.size(); ++i) {
    moved.x += (same[i].at.x - corners[i].at.x) / double(same.size());
    moved.y += (same[i].at.y - corners[i].at.y) / double(same.size());
  }
  EXPECT_LT(std::hypot(moved.x, moved.y), 2);
  for (size_t i = 0; i < same.size(); ++i) {
    EXPECT_NEAR(same[i].at.x - moved.x, corners[i].at.x, 1.6) << i;
    EXPECT_NEAR(same[i].at.y - moved.y, corners[i].at.y, 1.6) << i;
  }
  int covered = 0, missing = 0;
  for (int y = 0; y < flat.height; ++y) {
    for (int x = 0; x < flat.width; ++x) {
      covered += flat.rows[y][x] > 0;
      missing += flat.rows[y][x] > 0 && tabled.rows[y][x] == 0;
    }
  }
  EXPECT_GT(covered, 100'000);
  EXPECT_LT(missing, covered / 200);

  // What is not good enough is refused by its number, and nothing is written.
  std::filesystem::remove(scratch / "camera.json");
  const auto expectRefusal = [&](std::vector<std::string> refused, const char* words) {
    const Answer answer = Quillon(refused);
    EXPECT_EQ(answer.exitCode, 1) << words;
    EXPECT_NE(answer.err.find(words), std::string::npos) << answer.err;
    EXPECT_FALSE(std::filesystem::exists(scratch / "camera.json"));
  };
  std::vector<std::string> strict = command;
  strict.insert(strict.end(), {"--max-rms", "0.01"});
  expectRefusal(strict, "beyond the limit of 0.01");
  std::vector<std::string> exactTable = withTable;
  exactTable.insert(exactTable.end(), {"--max-residual", "0.3"});
  expectRefusal(exactTable, "beyond 0.3 (--max-residual); rectify follows the camera file itself");
  GreyImage blank;
  blank.Create(400, 300);
  kit::WriteImage(scratch / "blank.png", blank);
  expectRefusal({"calibrate", scratch / "camera.json", scratch / "blank.png", "--board", "9", "7",
                 "--square", "25"},
                "shows 0 corners of a board with 9 x 7 inner corners");
  WriteText(scratch / "wrong.json", R"({"kind": "camera", "width": 400, "height": 300})");
  EXPECT_THROW(kit::Rectifier(scratch / "wrong.json"), kit::Failure);
  // Before memory is taken for pictures of that size: 16 GiB.
  WriteText(scratch / "large.json",
            R"({"kind": "camera", "width": 32767, "height": 32767, "focal_length": [30000, 30000],
                "centre": [16383, 16383], "bend": [0, 0, 0, 0, 0], "square": 5, "unit": "mm",
                "plane": {"rotation": [0.2, -0.1, 0], "shift": [-2, -1.5, 8]}})");
  const Answer answer = Quillon({"rectify", scratch / "blank.png", scratch / "flat.png",
                                 "--parameters", scratch / "large.json"});
  EXPECT_EQ(answer.exitCode, 1);
  EXPECT_NE(answer.err.find("32767 x 32767"), std::string::npos) << answer.err;
}

// Dark and bright dots, turned, aslant, partly out of the picture, in light that falls off by half.
TEST(Cameras, AreFoundFromDrawnDots) {
  const Scratch scratch;
  const kit::Lens lens = {420, 415, 205, 146, {-0.2, 0.05, 0.001, -0.001, 0}};
  const kit::BoardPlace places[] = {{{0.05, -0.1, 0.15}, {-4, -3, 15}},
                                    {{0.4, 0.1, -0.2}, {-4.2, -2.6, 14}},
                                    {{-0.1, 0.4, 0.1}, {-3.6, -3.2, 15}},
                                    {{0.05, 0.1, 0.6}, {-1.5, -4.2, 12}},
                                    {{0.1, -0.4, 0.3}, {-3, -4, 12}}};
  for (const bool areDark : {true, false}) {
    std::vector<std::string> command = {"calibrate", scratch / "camera.json"};
    std::mt19937_64 random(7);
    for (const kit::BoardPlace& place : places) {
      DrawnPicture board = PlaneView(lens, place, {400, 300}, 2).Draw([&](Point at) {
        const double ground = Dots(at, 10, 8, 0.25, 0.03);
        return 40 + 170 * (areDark ? ground : 1 - ground);
      });
      board.Blur(0.8);
      for (size_t i = 0; i < board.grey.size(); ++i)
        board.grey[i] *= 1 - 0.5 * double(i % 400) / 400;
      GreyImage image;
      board.To(image, 3, random);
      kit::WriteImage(command.emplace_back(scratch / (std::to_string(command.size()) + ".png")),
                      image);
    }
    for (const char* word : {"--board", "10", "8", "--square", "25", "--dots"}) {
      command.emplace_back(word);
    }
    const nlohmann::json told = QuillonJson(command);
    EXPECT_LT(told["rms"], 0.12) << told;
    EXPECT_NEAR(told["fx"], lens.fx, 4);
    EXPECT_NEAR(told["fy"], lens.fy, 4);
    for (const auto& view : told["views"]) EXPECT_GT(view["corners"], 50) << view;
    EXPECT_EQ(told["views"][0]["corners"], 80);
  }
  // A chessboard has no dots.
  GreyImage chessboard;
  DrawBoard(lens, places[0], chessboard);
  kit::WriteImage(scratch / "chessboard.png", chessboard);
  const Answer refused = Quillon({"calibrate", scratch / "none.json", scratch / "chessboard.png",
                                  "--board", "10", "8", "--square", "25", "--dots"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.err.find("dots of a board with 10 x 8 dots; at least 12 are needed"),
            std::string::npos)
      << refused.err;
}

// A cubic cannot follow a wide lens; the table is as near as one comes anywhere in the picture,
// where least squares alone would leave its corners many pixels off.
TEST(Cameras, TablesFollowWideLensesEvenly) {
  const Scratch scratch;
  kit::Camera camera;
  camera.size = {640, 480};
  camera.lens = {535, 535, 340, 235, {-0.27, -0.04, 0.002, 0, 0.24}};
  camera.square = 25;
  camera.plane = {{0.1, 0.25, 0}, {-4, -2.5, 16}};
  const kit::LensFit table = kit::FitLensToCamera(camera, 10, scratch / "lens.bin");
  EXPECT_LT(table.points[table.worst].Residual(), 3);
  EXPECT_LT(table.rms, 2);
  EXPECT_GT(table.points.size(), 4000u);
}

// The likeliest point, from which the grid grows, may be any, one at the border among them, and one
// of its neighbours may be hidden: the others are found, in their order.
TEST(Cameras, BoardsAreFoundFromAnyOfTheirPoints) {
  const kit::BoardPlace place = {{0.2, -0.3, 0.2}, {-2, -1.5, 9}};
  std::vector<kit::BoardPoint> board;
  for (int i = 0; i < 6 * 5; ++i) {
    const Point at = place.Seen(i % 6, i / 6);
    board.push_back({{400 * at.x, 400 * at.y}, i % 6, i / 6});
  }
  for (const bool looksAlike : {false, true}) {
    for (const kit::BoardPoint& first : board) {
      for (const kit::BoardPoint& hidden : board) {
        if (&hidden == &first) continue;
        const auto looksLike = [&](const kit::BoardPoint& point) -> kit::BoardCandidate {
          const double pattern = (point.column + point.row) % 2 ? 1 : -1;
          return {point.at, looksAlike ? 0 : pattern};
        };
        std::vector<kit::BoardCandidate> candidates = {looksLike(first)};
        for (const kit::BoardPoint& point : board) {
          if (&point != &first && &point != &hidden) candidates.push_back(looksLike(point));
        }
        const auto points = kit::LargestGrid(candidates, kit::kAnyBoard);
        EXPECT_GE(points.size(), candidates.size() - 3);  // what hangs on by one point is left
        for (const kit::BoardPoint& point : points) {
          const kit::BoardPoint& drawn = board[size_t(point.column + 6 * point.row)];
          ASSERT_EQ(kit::Distance(point.at, drawn.at), 0)
              << looksAlike << " from " << first.column << ", " << first.row << " without "
              << hidden.column << ", " << hidden.row;
        }
      }
    }
  }
}

// From boards to millimetres: the recipe's own limits are 0.02 mm around what was drawn.
// bench/accuracy/tray_accuracy.cpp does it with more trays.
TEST(Cameras, BracketsOnTraysAreMeasuredInMillimetres) {
  const Scratch scratch;
  TrayCamera camera(5, scratch / "camera.json");
  EXPECT_LT(camera.Rms(), 0.1);
  const std::string example = InProgramFolder("recipes/measure-brackets.json");
  const kit::recipe::Recipe recipe =
      kit::recipe::MakeRecipe(RecipeForCamera(example, scratch / "camera.json"));
  kit::recipe::Inspector inspector(recipe, {InProgramFolder("recipes")});
  for (const uint32_t seed : {5, 6}) {
    GreyImage image;
    int brackets = 0;
    camera.Take(seed, image, brackets);
    const auto record = inspector.Inspect(image);
    EXPECT_EQ(NameOf(record.verdict), std::string("pass")) << seed << record.error;
    BracketErrors errors;
    ASSERT_TRUE(AddErrors(recipe, inspector, brackets, errors)) << seed;
    for (const auto& list : {errors.diameters, errors.distances, errors.angles}) {
      for (const double error : list) EXPECT_LT(std::abs(error), 0.02) << seed;
    }
  }
}

}  // namespace
}  // namespace quillon::test
