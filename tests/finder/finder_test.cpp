#include "finder/finder.h"

#include <cmath>
#include <limits>
#include <numeric>

#include "finder/score_reference.h"
#include "support/scenes.h"

namespace quillon::test {
namespace {

using namespace finder;

Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

Status TeachFrom(const GreyImage& image, Way way, Model& model) {
  TeachOptions options;
  options.way = way;
  return Teach(BestFinderKernels(), PictureOf(image), options, model);
}

bool SameBytes(const Results& a, const Results& b) {
  return a.size() == b.size() &&
         (a.empty() || !std::memcmp(a.data(), b.data(), a.size() * sizeof(Match)));
}

double TurnBetween(double a, double b) { return std::abs(std::remainder(a - b, 360.0)); }

const Match* Nearest(const Results& results, const Truth& truth) {
  for (const Match& match : results) {
    if (std::hypot(match.x - truth.x, match.y - truth.y) < 1) return &match;
  }
  return nullptr;
}

// Every level gives the same bytes; every part is found where it was drawn; scores are what their
// definition says; the order is that of the scores.
TEST(Finder, FindsWhatWasDrawnAtEveryLevel) {
  const struct {
    Way way;
    SceneSpec spec;
    Polarity polarity;
    double position, turn, scale;  // allowed errors
  } kCases[] = {
      {Way::kEdges,
       {.instances = 3, .angleMin = -180, .angleMax = 180, .seed = 2},
       Polarity::kSame,
       0.1,
       0.15,
       0},
      {Way::kEdges,
       {.instances = 3, .angleMin = 170, .angleMax = 190, .noise = 15, .seed = 3},
       Polarity::kAny,
       0.2,
       0.4,
       0},
      {Way::kEdges,
       {.templateWidth = 90,
        .templateHeight = 61,
        .instances = 2,
        .angleMin = -20,
        .angleMax = 20,
        .scaleMin = 0.5,
        .scaleMax = 2,
        .seed = 4},
       Polarity::kSame,
       0.2,
       0.2,
       0.01},
      {Way::kGrey,
       {.instances = 3, .angleMin = -180, .angleMax = 180, .seed = 5},
       Polarity::kSame,
       0.05,
       0.1,
       0},
      {Way::kGrey,
       {.instances = 4, .gain = 0.7, .noise = 10, .seed = 6},
       Polarity::kSame,
       0.1,
       0,
       0},
      // Of the coarsest level's fine pattern, half a pixel away, linear interpolation leaves
      // little.
      {Way::kGrey, {.instances = 5, .seed = 107}, Polarity::kSame, 0.03, 0, 0},
      {Way::kGrey,
       {.templateWidth = 101,
        .templateHeight = 60,
        .instances = 2,
        .angleMin = -30,
        .angleMax = 30,
        .scaleMin = 0.6,
        .scaleMax = 1.4,
        .seed = 7},
       Polarity::kSame,
       0.1,
       0.1,
       0.005},
      // At the coarsest level fits lead away from the small ones: 41 to 64 pixels of a fine
      // pattern.
      {Way::kGrey,
       {.instances = 4, .scaleMin = 0.8, .scaleMax = 1.2, .seed = 205588},
       Polarity::kSame,
       0.05,
       0,
       0.002},
      // One has hardly more than half the template's size: at the coarsest level 5 x 5 pixels.
      {Way::kGrey,
       {.templateWidth = 80,
        .templateHeight = 80,
        .width = 1280,
        .height = 1024,
        .instances = 4,
        .angleMin = -180,
        .angleMax = 180,
        .scaleMin = 0.5,
        .scaleMax = 2,
        .seed = 6004},
       Polarity::kSame,
       0.05,
       0.05,
       0.002},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.spec.seed);
    GreyImage pattern, scene;
    const std::vector<Truth> truths = MakeScene(c.spec, pattern, scene);
    Model model;
    ASSERT_EQ(TeachFrom(pattern, c.way, model), Status::kOk);
    FindOptions options;
    options.angleLow = c.spec.angleMin;
    options.angleHigh = c.spec.angleMax;
    options.scaleLow = c.spec.scaleMin;
    options.scaleHigh = c.spec.scaleMax;
    options.polarity = c.polarity;
    options.minScore = 0.6;
    Results results;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(scene), options, results), Status::kOk);
    EXPECT_EQ(results.size(), truths.size());
    for (const Truth& truth : truths) {
      const Match* match = Nearest(results, truth);
      ASSERT_TRUE(match) << truth.x << " " << truth.y << " " << truth.angle << " " << truth.scale;
      EXPECT_LE(std::hypot(match->x - truth.x, match->y - truth.y), c.position);
      EXPECT_LE(TurnBetween(match->degrees, truth.angle), c.turn);
      EXPECT_LE(std::abs(match->scale - truth.scale), c.scale);
      EXPECT_GE(match->visible, 0.8);
    }
    for (size_t i = 0; i < results.size(); ++i) {
      const Match& match = results[i];
      const double defined =
          c.way == Way::kGrey
              ? reference::GreyScore(model, PictureOf(scene), match)
              : reference::EdgeScore(model, PictureOf(scene), match, c.polarity == Polarity::kAny);
      EXPECT_NEAR(match.score, defined, 1e-6);
      EXPECT_EQ(Score(BestFinderKernels(), model, PictureOf(scene),
                      {match.x, match.y, match.degrees, match.scale}, c.polarity),
                match.score);
      if (i > 0) {
        EXPECT_LE(match.score, results[i - 1].score);
      }
      EXPECT_GE(match.degrees, options.angleLow);
      EXPECT_LE(match.degrees, options.angleLow + 360);
      const double side = std::hypot(match.corners[1][0] - match.corners[0][0],
                                     match.corners[1][1] - match.corners[0][1]);
      EXPECT_NEAR(side, model.width * match.scale, 1e-9);
      EXPECT_NEAR((match.corners[0][0] + match.corners[2][0]) / 2, match.x, 1e-9);
    }
    for (const FinderKernels* kernels : AvailableFinderKernels()) {
      SCOPED_TRACE(kernels->level);
      Model again;
      Results same;
      TeachOptions teaching;
      teaching.way = c.way;
      ASSERT_EQ(Teach(*kernels, PictureOf(pattern), teaching, again), Status::kOk);
      ASSERT_EQ(Find(*kernels, again, PictureOf(scene), options, same), Status::kOk);
      EXPECT_TRUE(SameBytes(same, results));
    }
    // The best one alone is the first of all.
    options.maxCount = 1;
    Results best;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(scene), options, best), Status::kOk);
    ASSERT_EQ(best.size(), 1U);
    EXPECT_NEAR(best[0].score, results[0].score, 1e-4);
    // A region holds the centres that lie in it.
    options.maxCount = 100;
    options.left = static_cast<int>(truths[0].x) - 5;
    options.right = options.left + 10;
    options.top = static_cast<int>(truths[0].y) - 5;
    options.bottom = options.top + 10;
    Results inside;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(scene), options, inside), Status::kOk);
    ASSERT_EQ(inside.size(), 1U);
    EXPECT_TRUE(Nearest(inside, truths[0]));
    // A file gives the same model.
    Buffer<uint8_t> bytes;
    ASSERT_EQ(Save(model, bytes), Status::kOk);
    Model loaded;
    ASSERT_EQ(Load(BestFinderKernels(), {bytes.data(), bytes.size()}, loaded), Status::kOk);
    Results byLoaded;
    ASSERT_EQ(Find(BestFinderKernels(), loaded, PictureOf(scene), options, byLoaded), Status::kOk);
    EXPECT_TRUE(SameBytes(byLoaded, inside));
  }
}

// A narrow range holds its part, wherever in the range it lies; one beside the part holds none.
TEST(Finder, RangesIncludeTheirEnds) {
  GreyImage pattern, scene;
  const Truth truth = MakeScene({.angleMin = 12.9, .angleMax = 12.9, .seed = 9}, pattern, scene)[0];
  const struct {
    double low, high;
    bool holds;
  } kRanges[] = {{10, 16, true},  {12.9, 12.9, true}, {12.8, 13, true}, {-347.5, -346, true},
                 {0, 13, true},   {12.8, 400, true},  {350, 380, true}, {-180, 180, true},
                 {30, 60, false}, {-90, -60, false}};
  for (const Way way : {Way::kEdges, Way::kGrey}) {
    Model model;
    ASSERT_EQ(TeachFrom(pattern, way, model), Status::kOk);
    for (const auto& range : kRanges) {
      SCOPED_TRACE(range.low);
      FindOptions options;
      options.angleLow = range.low;
      options.angleHigh = range.high;
      options.minScore = 0.7;
      Results results;
      ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(scene), options, results), Status::kOk);
      ASSERT_EQ(results.size(), range.holds ? 1U : 0U);
      if (!range.holds) continue;
      EXPECT_LE(std::hypot(results[0].x - truth.x, results[0].y - truth.y), 0.2);
      EXPECT_GE(results[0].degrees, range.low);
      EXPECT_LE(results[0].degrees, std::max(range.high, range.low + 360));
    }
  }
}

void Draw(GreyImage& image, const std::function<int(int x, int y)>& value) {
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) image.rows[y][x] = static_cast<uint8_t>(value(x, y));
  }
}

TEST(Finder, TellsPatternsThatDoNotTellPlaces) {
  const auto disc = [](int x, int y) { return std::hypot(x - 31.5, y - 31.5) < 20 ? 200 : 60; };
  const struct {
    const char* name;
    std::function<int(int, int)> value;
    uint32_t doubts;  // at least these
    int symmetry;
  } kPatterns[] = {
      {"stripes", [](int x, int) { return x / 10 % 2 != 0 ? 180 : 60; }, kSlides | kRepeats, -1},
      {"grid", [](int x, int y) { return x % 16 < 8 && y % 16 < 8 ? 180 : 60; }, kRepeats, -1},
      {"square",
       [](int x, int y) { return std::max(std::abs(x - 32), std::abs(y - 32)) < 18 ? 180 : 60; },
       kSymmetric, 4},
      {"bar",
       [](int x, int y) { return std::abs(x - 32) < 10 && std::abs(y - 32) < 24 ? 180 : 60; },
       kSymmetric, 2},
      {"disc", disc, kSymmetric, 0},
  };
  for (const auto& pattern : kPatterns) {
    SCOPED_TRACE(pattern.name);
    GreyImage image;
    image.Create(64, 64);
    Draw(image, pattern.value);
    for (const Way way : {Way::kEdges, Way::kGrey}) {
      Model model;
      ASSERT_EQ(TeachFrom(image, way, model), Status::kOk);
      EXPECT_EQ(model.doubts & pattern.doubts, pattern.doubts);
      if (pattern.symmetry >= 0) {
        EXPECT_EQ(model.symmetry, pattern.symmetry);
      }
    }
  }
}

TEST(Finder, SaysWhatItCannotTeach) {
  GreyImage flat, texture, thin;
  Fill(flat, 40, 40, Content::kFlat);
  Fill(texture, 40, 40, Content::kNoise);
  Fill(thin, 40, 5, Content::kNoise);
  const Picture empty;
  Picture wide = PictureOf(texture);
  wide.width = kMaxSide + 1;
  GreyImage none;
  none.Create(40, 40);
  const struct {
    Picture picture;
    TeachOptions options;
    Status status;
  } kCases[] = {
      {empty, {}, Status::kNoPicture},
      {wide, {}, Status::kNoPicture},
      {PictureOf(thin), {}, Status::kTooSmall},
      {PictureOf(flat), {Way::kEdges, {}}, Status::kTooFewEdges},
      {PictureOf(flat), {Way::kGrey, {}}, Status::kFlat},
      {PictureOf(texture), {Way::kGrey, PictureOf(thin)}, Status::kBadMask},
      {PictureOf(texture), {Way::kEdges, PictureOf(none)}, Status::kTooSmall},
      {PictureOf(texture), {Way::kEdges, {}}, Status::kOk},
  };
  for (const auto& c : kCases) {
    Model model;
    EXPECT_EQ(Teach(BestFinderKernels(), c.picture, c.options, model), c.status)
        << Describe(c.status);
    EXPECT_EQ(model.IsTaught(), c.status == Status::kOk);
  }
}

TEST(Finder, SaysWhatItCannotFind) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  GreyImage pattern, scene, small;
  MakeScene({.seed = 1}, pattern, scene);
  Fill(small, 40, 40, Content::kNoise);
  Model model;
  ASSERT_EQ(TeachFrom(pattern, Way::kEdges, model), Status::kOk);
  const auto with = [](auto FindOptions::*field, auto value) {
    FindOptions options;
    options.*field = value;
    return options;
  };
  FindOptions outside;
  outside.left = scene.width, outside.right = scene.width + 10, outside.bottom = 10;
  FindOptions line;
  line.left = 10, line.right = 20;
  const struct {
    Picture picture;
    FindOptions options;
    Status status;
  } kCases[] = {
      {PictureOf(scene), {}, Status::kOk},
      {{}, {}, Status::kNoPicture},
      {PictureOf(small), {}, Status::kDoesNotFit},
      {PictureOf(small), with(&FindOptions::scaleLow, 0.5), Status::kOk},
      {PictureOf(scene), outside, Status::kBadRegion},
      {PictureOf(scene), line, Status::kBadRegion},
      {PictureOf(scene), with(&FindOptions::angleLow, kNan), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::angleHigh, kInfinite), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::angleHigh, -1.0), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::scaleLow, 0.4), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::scaleHigh, kNan), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::minScore, 0.0), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::maxOverlap, 1.5), Status::kBadNumber},
      {PictureOf(scene), with(&FindOptions::maxCount, 0), Status::kBadNumber},
  };
  for (const auto& c : kCases) {
    Results results;
    EXPECT_EQ(Find(BestFinderKernels(), model, c.picture, c.options, results), c.status)
        << Describe(c.status);
  }
}

TEST(Finder, RefusesDamagedFiles) {
  GreyImage image, mask;
  Fill(image, 12, 11, Content::kNoise);
  Fill(mask, 12, 11, Content::kBinary);
  TeachOptions options;
  options.mask = PictureOf(mask);
  options.way = Way::kGrey;
  Model model, loaded;
  ASSERT_EQ(Teach(BestFinderKernels(), PictureOf(image), options, model), Status::kOk);
  Buffer<uint8_t> bytes;
  ASSERT_EQ(Save(model, bytes), Status::kOk);
  const auto load = [&](size_t size) {
    return Load(BestFinderKernels(), {bytes.data(), size}, loaded);
  };
  EXPECT_EQ(load(bytes.size()), Status::kOk);
  EXPECT_TRUE(loaded.mask);
  for (size_t i = 0; i < bytes.size(); ++i) {
    EXPECT_EQ(load(i), Status::kDamaged) << "cut at " << i;
    bytes[i] ^= 16;
    EXPECT_EQ(load(bytes.size()), Status::kDamaged) << "bit at " << i;
    EXPECT_FALSE(loaded.IsTaught());
    bytes[i] ^= 16;
  }
}

// A pattern in a picture, turned about its centre; what it covers is gone.
void Lay(const GreyImage& pattern, const Truth& at, GreyImage& image) {
  const double a = at.angle * 3.14159265358979323846 / 180, c = std::cos(a), s = std::sin(a);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const double u = c * (x - at.x) + s * (y - at.y) + (pattern.width - 1) / 2.0;
      const double v = -s * (x - at.x) + c * (y - at.y) + (pattern.height - 1) / 2.0;
      if (u < -0.5 || v < -0.5 || u >= pattern.width - 0.5 || v >= pattern.height - 0.5) continue;
      double value = 0;
      const double cu = std::clamp(u, 0.0, pattern.width - 1.0),
                   cv = std::clamp(v, 0.0, pattern.height - 1.0);
      for (int i = 0; i < 4; ++i) {
        const int px = std::min(static_cast<int>(cu) + i % 2, pattern.width - 1);
        const int py = std::min(static_cast<int>(cv) + i / 2, pattern.height - 1);
        const double fx = cu - static_cast<int>(cu), fy = cv - static_cast<int>(cv);
        value += (i % 2 != 0 ? fx : 1 - fx) * (i / 2 != 0 ? fy : 1 - fy) * pattern.rows[py][px];
      }
      image.rows[y][x] = static_cast<uint8_t>(value + 0.5);
    }
  }
}

// Long parts side by side all count; so do two of which one covers a third of the other.
TEST(Finder, FindsPartsThatTouch) {
  GreyImage pattern, unused;
  MakeScene({.templateWidth = 160, .templateHeight = 24, .seed = 21}, pattern, unused);
  for (const Way way : {Way::kEdges, Way::kGrey}) {
    Model model;
    ASSERT_EQ(TeachFrom(pattern, way, model), Status::kOk);
    for (const double degrees : {15.0, 45.0}) {
      GreyImage image;
      image.Create(320, 320);
      Draw(image, [](int, int) { return 90; });
      std::vector<Truth> truths;
      const double a = degrees * 3.14159265358979323846 / 180;
      for (int k = 0; k < 6; ++k) {
        const double across = 25.3 * (k - 2.5);
        truths.push_back({160 - across * std::sin(a), 160 + across * std::cos(a), degrees, 1});
        Lay(pattern, truths.back(), image);
      }
      FindOptions options;
      options.angleLow = -180;
      options.angleHigh = 180;
      Results results;
      ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(image), options, results), Status::kOk);
      EXPECT_EQ(results.size(), 6U);
      for (const Truth& truth : truths)
        EXPECT_TRUE(Nearest(results, truth)) << truth.x << " " << truth.y;
    }
  }
  MakeScene({.templateWidth = 96, .templateHeight = 96, .seed = 22}, pattern, unused);
  for (const Way way : {Way::kEdges, Way::kGrey}) {
    Model model;
    ASSERT_EQ(TeachFrom(pattern, way, model), Status::kOk);
    GreyImage image;
    image.Create(320, 320);
    Draw(image, [](int, int) { return 90; });
    const Truth lower = {140.3, 150.8, 25, 1}, upper = {202.6, 160.1, -80, 1};
    Lay(pattern, lower, image);
    Lay(pattern, upper, image);
    FindOptions options;
    options.angleLow = -180;
    options.angleHigh = 180;
    options.minScore = 0.3;
    Results results;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(image), options, results), Status::kOk);
    for (const bool covered : {true, false}) {
      const Truth& truth = covered ? lower : upper;
      const Match* match = Nearest(results, truth);
      ASSERT_TRUE(match) << truth.x;
      const double defined = way == Way::kGrey
                                 ? reference::GreyScore(model, PictureOf(image), *match)
                                 : reference::EdgeScore(model, PictureOf(image), *match, false);
      EXPECT_NEAR(match->score, defined, 1e-6);
      EXPECT_LT(std::abs(match->visible - (covered ? 0.66 : 1)), 0.15) << match->visible;
    }
  }
}

// Halves that look alike: a place between two parts shows one half of each, and is none.
TEST(Finder, FindsNothingBetweenParts) {
  GreyImage pattern, image;
  pattern.Create(120, 24);
  Random random(5);
  int cells[4][20];
  for (int i = 0; i < 20; ++i) {
    for (int row = 0; row < 2; ++row) {
      cells[row][i] = random.Within(50, 200);
      cells[row + 2][i] = cells[row][i] + random.Within(-40, 40);
    }
  }
  Draw(pattern, [&](int x, int y) { return cells[y / 6][x / 6]; });
  image.Create(240, 200);
  Draw(image, [](int, int) { return 90; });
  std::vector<Truth> truths;
  for (int k = 0; k < 3; ++k) {
    truths.push_back({120.3, 70.4 + 25 * k, 0, 1});
    Lay(pattern, truths.back(), image);
  }
  const Truth between = {120.3, 82.9, 0, 1};
  for (const Way way : {Way::kEdges, Way::kGrey}) {
    Model model;
    ASSERT_EQ(TeachFrom(pattern, way, model), Status::kOk);
    FindOptions options;
    options.minScore = 0.6;  // above that of a half beside the last part
    Results results;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(image), options, results), Status::kOk);
    EXPECT_EQ(results.size(), truths.size());
    for (const Truth& truth : truths) EXPECT_TRUE(Nearest(results, truth)) << truth.y;
    options.maxOverlap = 1;
    ASSERT_EQ(Find(BestFinderKernels(), model, PictureOf(image), options, results), Status::kOk);
    EXPECT_TRUE(Nearest(results, between)) << "no place looks like a part";
  }
}

// A pattern so fine that a coarse level blurs it away is swept there by the edges of the level
// below, where that alone would take long; a narrow range is swept on the level below.
TEST(Finder, FindsFinePatternsInLargePictures) {
  GreyImage pattern, image;
  pattern.Create(96, 96);
  Random random(8);
  // Stripes of four pixels, upright or level in each patch.
  std::vector<int> isUpright(36);
  for (int& patch : isUpright) patch = random.Within(0, 1);
  Draw(pattern, [&](int x, int y) {
    return (isUpright[y / 16 * 6 + x / 16] != 0 ? x : y) % 4 < 2 ? 60 : 180;
  });
  image.Create(1024, 1024);
  Draw(image, [](int, int) { return 90; });
  const Truth truth = {400.3, 610.8, 100.5, 1};
  Lay(pattern, truth, image);
  Model model;
  ASSERT_EQ(TeachFrom(pattern, Way::kEdges, model), Status::kOk);
  ASSERT_TRUE(model.level[model.levels - 1].isPooled);
  for (const double range : {180.0, 2.0}) {
    FindOptions options;
    options.angleLow = 100 - range;
    options.angleHigh = 100 + range;
    Results first;
    for (const FinderKernels* kernels : AvailableFinderKernels()) {
      SCOPED_TRACE(kernels->level);
      Results results;
      ASSERT_EQ(Find(*kernels, model, PictureOf(image), options, results), Status::kOk);
      ASSERT_EQ(results.size(), 1U);
      EXPECT_TRUE(Nearest(results, truth));
      if (first.empty()) {
        ASSERT_TRUE(first.Add(results[0]));
      }
      EXPECT_TRUE(SameBytes(results, first));
    }
  }
}

}  // namespace
}  // namespace quillon::test
