// Board inspection on drawn boards whose defects are known, and on marked pairs of real ones where
// they are at hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

#include "cli/host.h"
#include "cli/marked_boards.h"
#include "kit/boards/board_warp.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/samples/sample_board.h"
#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using kit::BoardInspector;
using kit::BoardPose;
using kit::Defect;
using kit::Difference;
using kit::DrawnDefect;
using kit::SampleBoard;
using Json = nlohmann::json;

constexpr int kAll = 99;  // as many defects as a board has places for

struct Look {
  double gain = 1, offset = 0;
  int noise = 0;  // to either side
};

void Disturb(const Look& look, GreyImage& image) {
  Random random(7);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double value =
          image.rows[y][x] * look.gain + look.offset + random.Within(-look.noise, look.noise);
      image.rows[y][x] = static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
    }
  }
}

std::vector<Defect> Inspect(const GreyImage& good, const GreyImage& tested,
                            const kit::InspectionRules& rules = {}) {
  BoardInspector inspector(rules);
  inspector.Teach(good);
  return inspector.Inspect(tested).defects;
}

bool Holds(const Defect& found, const DrawnDefect& drawn) {
  constexpr int kBlur = 2;  // where a change is too faint to be seen
  return found.left <= drawn.left + kBlur && found.right >= drawn.right - kBlur &&
         found.top <= drawn.top + kBlur && found.bottom >= drawn.bottom - kBlur;
}

// One defect for each that was drawn, of its kind and around it, not much larger, and no other.
void ExpectEach(const std::vector<DrawnDefect>& drawn, const std::vector<Defect>& found) {
  EXPECT_EQ(found.size(), drawn.size());
  for (const DrawnDefect& d : drawn) {
    int held = 0;
    for (const Defect& f : found) {
      if (!Holds(f, d)) continue;
      ++held;
      EXPECT_EQ(f.Kind(), d.kind) << d.name;
      constexpr int kMost = 2 * (8 + 3 + 2);  // margin, tolerance, shape
      EXPECT_LE(f.right - f.left, d.right - d.left + kMost) << d.name;
      EXPECT_LE(f.bottom - f.top, d.bottom - d.top + kMost) << d.name;
    }
    EXPECT_EQ(held, 1) << d.name << " at " << d.left << ", " << d.top;
  }
}

// Ends not included.
struct Area {
  int left, top, right, bottom;
};

void Paint(GreyImage& image, const Area& area, int grey) {
  for (int y = area.top; y < area.bottom; ++y) {
    std::fill(image.rows[y] + area.left, image.rows[y] + area.right, static_cast<uint8_t>(grey));
  }
}

void DrawGround(GreyImage& image, int width, int height, int grey) {
  image.Create(width, height);
  Paint(image, {0, 0, width, height}, grey);
}

std::string FailureOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const kit::Failure& failure) {
    return failure.what();
  }
  return "";
}

}  // namespace

TEST(Inspection, BoardsWithoutDefectsPass) {
  for (const auto [width, height] : {Size{200, 200}, {201, 333}, {640, 480}, {1030, 770}}) {
    for (uint32_t seed = 1; seed <= 3; ++seed) {
      const SampleBoard board(seed, width, height);
      GreyImage good, same;
      board.DrawGood(good);
      EXPECT_TRUE(Inspect(good, good).empty());
      for (const BoardPose& pose :
           {BoardPose{.x = 4, .y = -7}, {.degrees = 0.6}, {.x = 1, .stretchX = 1.008}}) {
        board.DrawGood(same, pose);
        EXPECT_TRUE(Inspect(good, same).empty())
            << width << " x " << height << ", seed " << seed << ", moved by " << pose.x << ", "
            << pose.y << ", turned by " << pose.degrees << ", stretched by " << pose.stretchX;
      }
      // Tracks that are wider or narrower all over; on less than this, little tells how it lies.
      if (width < 300) continue;
      for (const double growth : {1.5, -1.5}) {
        board.DrawGood(same, {}, growth);
        EXPECT_TRUE(Inspect(good, same).empty())
            << width << " x " << height << ", seed " << seed << ", grown by " << growth;
      }
    }
  }
}

TEST(Inspection, FindsWhatIsMissingAndWhatIsExtra) {
  struct Case {
    const char* name;
    BoardPose pose;
    Look look;
  };
  const Case cases[] = {
      {"as the good one", {}, {}},
      {"shifted", {.x = -9, .y = 6.5}, {}},
      {"far", {.x = 25, .y = -20}, {}},
      {"turned", {.x = 2, .degrees = -0.8}, {}},
      {"stretched", {.y = 3, .stretchX = 0.992, .stretchY = 1.01}, {}},
      {"faint and noisy", {.x = 3}, {.gain = 0.3, .offset = 90, .noise = 15}},
  };
  for (const Case& c : cases) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
      SCOPED_TRACE(std::string(c.name) + ", seed " + std::to_string(seed));
      const SampleBoard board(seed, 640, 560);
      GreyImage good, tested;
      board.DrawGood(good);
      const auto drawn = board.DrawTested(kAll, tested, c.pose);
      ASSERT_GE(drawn.size(), 12u);
      Disturb(c.look, tested);
      ExpectEach(drawn, Inspect(good, tested));
    }
  }
}

TEST(Inspection, BrightMaterialAndMirroredBoardsGiveTheSame) {
  const SampleBoard board(5, 600, 400);
  GreyImage good, tested, good2, tested2;
  board.DrawGood(good);
  board.DrawTested(kAll, tested, {.x = 2, .y = 1});
  const auto expected = Inspect(good, tested);
  IxImageInvert(&good, &good2);
  IxImageInvert(&tested, &tested2);
  const auto bright = Inspect(good2, tested2, {.brightMaterial = true});
  const auto swapped = Inspect(good2, tested2);
  ASSERT_EQ(bright.size(), expected.size());
  ASSERT_EQ(swapped.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(bright[i].missing, expected[i].missing);
    EXPECT_EQ(bright[i].left, expected[i].left);
    EXPECT_EQ(swapped[i].extra, expected[i].missing) << "what is missing there is extra here";
  }

  const auto mirror = [](const GreyImage& from, GreyImage& to) {
    to.Create(from.width, from.height);
    for (int y = 0; y < to.height; ++y) {
      for (int x = 0; x < to.width; ++x) to.rows[y][x] = from.rows[y][from.width - 1 - x];
    }
  };
  mirror(good, good2);
  mirror(tested, tested2);
  const auto mirrored = Inspect(good2, tested2);
  EXPECT_EQ(mirrored.size(), expected.size());
  for (const Defect& e : expected) {
    EXPECT_EQ(std::count_if(mirrored.begin(), mirrored.end(),
                            [&](const Defect& m) {
                              return std::abs(good.width - 1 - m.right - e.left) <= 2 &&
                                     std::abs(m.top - e.top) <= 2;
                            }),
              1);
  }
}

// What the comparison at the tolerance cannot tell, each on a board of thin tracks: six pixels
// wide, forty apart.
TEST(Inspection, LooksCloserWhereBoardsSeemToDiffer) {
  constexpr int kSize = 400, kTrack = 6, kApart = 40;
  struct Case {
    const char* name;
    std::vector<Area> ground, material;  // painted on the tested board, one after the other
    int cut;                             // its content ends this much above the good one's
    int missing, extra;                  // defects of each kind
  };
  const Case cases[] = {
      {"nothing", {}, {}, 0, 0, 0},
      {"a break of three pixels", {{100, 200, 106, 203}}, {}, 0, 1, 0},
      {"a bite that leaves two pixels of the track", {{140, 200, 144, 208}}, {}, 0, 1, 0},
      {"a bridge over a gap of six pixels", {}, {{106, 200, 112, 204}}, 0, 0, 1},
      {"a piece of track moved by two pixels",
       {{180, 150, 182, 190}},
       {{186, 150, 188, 190}},
       0,
       0,
       0},
      {"a bridge in three pieces",
       {},
       {{147, 100, 153, 104}, {158, 100, 165, 104}, {171, 100, 177, 104}},
       0,
       0,
       1},
      {"content cut four pixels higher", {}, {}, 4, 0, 0},
      {"cut higher, and a break", {{100, 200, 106, 212}}, {}, 4, 1, 0},
  };
  for (const Case& c : cases) {
    GreyImage good, tested;
    for (GreyImage* board : {&good, &tested}) {
      DrawGround(*board, kSize, kSize, 220);
      for (int x = 20; x + kTrack <= kSize; x += kApart) {
        Paint(*board, {x, 10, x + kTrack, 360}, 30);
        Paint(*board, {x - 7, 40 + x / 3, x + kTrack + 7, 60 + x / 3}, 30);  // a pad
      }
      Paint(*board, {112, 150, 118, 250}, 30);  // a track close to another
    }
    for (const Area& area : c.ground) Paint(tested, area, 220);
    for (const Area& area : c.material) Paint(tested, area, 30);
    Paint(tested, {0, 360 - c.cut, kSize, kSize}, 220);
    const auto found = Inspect(good, tested);
    const auto count = [&](kit::Difference kind) {
      return std::count_if(found.begin(), found.end(),
                           [&](const Defect& d) { return d.Kind() == kind; });
    };
    EXPECT_EQ(count(kit::Difference::kMissing), c.missing) << c.name;
    EXPECT_EQ(count(kit::Difference::kExtra), c.extra) << c.name;
  }
}

// Tiles of parallel lines know nothing along them, where what they want is wrong by many pixels.
TEST(Inspection, TilesSpeakForTheDirectionsThatTheyKnow) {
  constexpr int kSide = 6, kTile = 100;
  const auto truth = [](double x, double y) {
    return kit::Displacement{3 + 0.01 * x - 0.004 * y, -2 + 0.006 * x + 0.008 * y};
  };
  std::vector<kit::TileView> views;
  for (int tile = 0; tile < kSide * kSide; ++tile) {
    const double x = kTile * (tile % kSide + 0.5), y = kTile * (tile / kSide + 0.5);
    const double angle = 0.3 + 2.4 * tile, across = std::cos(angle), along = std::sin(angle);
    const auto [dx, dy] = truth(x, y);
    const double wrong = tile % 7 - 3;
    views.push_back({x,
                     y,
                     across * across,
                     across * along,
                     along * along,
                     {dx - along * wrong, dy + across * wrong}});
  }
  for (const int terms : {3, kit::BoardWarp::kTerms}) {
    kit::BoardWarp warp(kSide * kTile, kSide * kTile);
    warp.FitPolynomial(terms, views);
    const auto expectTruth = [&](const char* by) {
      for (const auto& [x, y] : {std::pair{50, 50}, {300, 120}, {550, 550}, {90, 480}}) {
        const kit::Displacement at = warp.At(x, y), there = truth(x, y);
        EXPECT_NEAR(at.x, there.x, 0.05) << by << terms << ", " << x << ", " << y;
        EXPECT_NEAR(at.y, there.y, 0.05) << by << terms << ", " << x << ", " << y;
      }
    };
    expectTruth("polynomial ");
    warp.FitNet(kSide, kSide, views);
    expectTruth("net ");
  }
}

TEST(Inspection, BlankAndSmallBoards) {
  GreyImage blank, spotted;
  DrawGround(blank, 200, 160, 200);
  DrawGround(spotted, 200, 160, 200);
  EXPECT_TRUE(Inspect(blank, blank).empty());
  Paint(spotted, {50, 60, 70, 75}, 40);
  const auto defects = Inspect(blank, spotted);
  ASSERT_EQ(defects.size(), 1u);
  EXPECT_EQ(defects[0].Kind(), Difference::kExtra);
  EXPECT_EQ(defects[0].missing, 0);
  EXPECT_NEAR(defects[0].extra, 20 * 15, 20);

  GreyImage smallest, broken;
  for (GreyImage* board : {&smallest, &broken}) {
    DrawGround(*board, 64, 64, 200);
    for (int at = 8; at < 64; at += 16) {
      Paint(*board, {at, 4, at + 6, 60}, 40);
      Paint(*board, {4, at, 60, at + 3}, 40);
    }
  }
  Paint(broken, {24, 28, 30, 36}, 200);
  EXPECT_TRUE(Inspect(smallest, smallest).empty());
  EXPECT_EQ(Inspect(smallest, broken).size(), 1u);
}

TEST(Inspection, PixelsLieInTheirDefects) {
  const SampleBoard board(2, 500, 400);
  GreyImage good;
  board.DrawGood(good);
  BoardInspector inspector;
  inspector.Teach(good);
  for (const auto& [x, y] : {std::pair(6, -4), std::pair(-9, 11)}) {
    GreyImage tested, ground;
    const auto drawn = board.DrawTested(kAll, tested, {.x = double(x), .y = double(y)});
    const auto defects = inspector.Inspect(tested).defects;
    ExpectEach(drawn, defects);
    IxMedianFilter3x3(&tested, &ground);
    IxOtsuThreshold(&ground);
    for (const Defect& defect : defects) {
      const auto missing = inspector.Pixels(defect, Difference::kMissing);
      const auto extra = inspector.Pixels(defect, Difference::kExtra);
      EXPECT_EQ(static_cast<int>(missing.size()), defect.missing);
      EXPECT_EQ(static_cast<int>(extra.size()), defect.extra);
      // What is missing is ground in the picture, what is extra is material.
      for (const kit::Point& p : missing) {
        EXPECT_EQ(ground.rows[static_cast<int>(p.y)][static_cast<int>(p.x)], 255);
      }
      for (const kit::Point& p : extra) {
        EXPECT_EQ(ground.rows[static_cast<int>(p.y)][static_cast<int>(p.x)], 0);
      }
    }
  }
}

TEST(Inspection, LearnsFromGoodBoardsHowFarEdgesWander) {
  const SampleBoard board(4, 500, 400);
  GreyImage good, wide, wider, tested;
  board.DrawGood(good);
  board.DrawGood(wide, {}, 1.5);
  board.DrawGood(wider, {}, 3.5);
  const auto drawn = board.DrawTested(kAll, tested);

  BoardInspector inspector;
  inspector.Teach(good);
  EXPECT_EQ(inspector.Tolerance(), 3);
  EXPECT_FALSE(inspector.Inspect(wider).defects.empty()) << "traces grew by more than that";
  inspector.AddGood(wide);
  EXPECT_EQ(inspector.Tolerance(), 3) << "what a good board showed within it widens nothing";
  inspector.AddGood(wider);
  // Along slopes, where the band of a diamond is narrowest, 3.5 pixels need one of 5; where copper
  // grew into free ground on one side only, the alignment follows it by a pixel or two.
  EXPECT_GE(inspector.Tolerance(), 4);
  EXPECT_LE(inspector.Tolerance(), 7);
  for (const GreyImage* image : {&good, &wide, &wider}) {
    EXPECT_TRUE(inspector.Inspect(*image).defects.empty());
  }
  EXPECT_FALSE(inspector.Inspect(tested).defects.empty());

  // A defect is no wandering edge.
  inspector.Teach(good);
  const std::string failure = FailureOf([&] { inspector.AddGood(tested); });
  EXPECT_NE(failure.find("no good board"), std::string::npos) << failure;

  // A given tolerance stays.
  BoardInspector strict({.tolerance = 2});
  strict.Teach(good);
  strict.AddGood(wide);
  EXPECT_EQ(strict.Tolerance(), 2);
}

TEST(Inspection, RefusesWhatCannotBeCompared) {
  const SampleBoard board(1, 300, 300), otherBoard(2, 300, 300);
  GreyImage good, other, flat, noise, small, smaller;
  board.DrawGood(good);
  otherBoard.DrawGood(other);
  Fill(flat, 300, 300, Content::kFlat);
  Fill(noise, 300, 300, Content::kNoise);
  Fill(small, 300, 299, Content::kNoise);
  Fill(smaller, 63, 300, Content::kNoise);

  BoardInspector inspector;
  inspector.Teach(good);
  struct Case {
    const GreyImage& tested;
    const char* message;
  };
  for (const Case& c : {Case{other, "does not show this board"},
                        {flat, "does not show this board"},
                        {noise, "does not show this board"},
                        {small, "300 x 299"}}) {
    const std::string failure = FailureOf([&] { inspector.Inspect(c.tested); });
    EXPECT_NE(failure.find(c.message), std::string::npos) << failure;
  }
  EXPECT_TRUE(inspector.Inspect(good).defects.empty()) << "a refusal leaves nothing behind";
  EXPECT_NE(FailureOf([&] { inspector.Teach(smaller); }).find("63 x 300"), std::string::npos);
  // A board that is like itself from no other side.
  GreyImage odd, seen;
  DrawGround(odd, 300, 300, 220);
  Random random(3);
  for (int i = 0; i < 60; ++i) {
    const int x = random.Within(0, 260), y = random.Within(0, 260);
    Paint(odd, {x, y, x + random.Within(6, 40), y + random.Within(6, 40)}, 30);
  }
  inspector.Teach(odd);
  seen.Create(300, 300);
  const struct {
    bool mirrored, upsideDown;
    const char* message;
  } turns[] = {{true, false, "mirrored, left for right"},
               {false, true, "mirrored, upside down"},
               {true, true, "turned by 180 degrees"}};
  for (const auto& turn : turns) {
    for (int y = 0; y < 300; ++y) {
      const uint8_t* from = odd.rows[turn.upsideDown ? 299 - y : y];
      for (int x = 0; x < 300; ++x) seen.rows[y][x] = from[turn.mirrored ? 299 - x : x];
    }
    const std::string failure = FailureOf([&] { inspector.Inspect(seen); });
    EXPECT_NE(failure.find(turn.message), std::string::npos) << failure;
  }
  // Material all over, but for specks.
  DrawGround(flat, 1280, 1280, 40);
  for (int at = 80; at < 1280; at += 160) {
    for (int x = 80; x < 1280; x += 160) Paint(flat, {x, at, x + 6, at + 6}, 220);
  }
  inspector.Teach(flat);
  EXPECT_NE(FailureOf([&] { inspector.Inspect(flat); }).find("no structure"), std::string::npos);
}

TEST(Inspection, MarkedPairsOfRealBoards) {
  const char* const data = std::getenv("QUILLON_DATA");
  const auto pairs = ReadMarkedPairs(data ? std::string(data) + "/pcb" : "");
  if (pairs.empty()) GTEST_SKIP() << "QUILLON_DATA names no folder with pcb/";
  DetectionCount total;
  BoardInspector inspector;
  for (const MarkedPair& pair : pairs) {
    GreyImage good, tested;
    kit::ReadImage(pair.good, good);
    kit::ReadImage(pair.tested, tested);
    inspector.Teach(good);
    EXPECT_TRUE(inspector.Inspect(good).defects.empty()) << pair.name;
    const DetectionCount count = Judge(inspector.Inspect(tested).defects, pair.marks);
    EXPECT_GE(count.F(), 0.8) << pair.name;
    total += count;
  }
  EXPECT_GE(total.F(), 0.95) << total.right << " right of " << total.found << " found and "
                             << total.marks << " marked";
}

}  // namespace quillon::test
