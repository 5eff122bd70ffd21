// How often the finder finds what it was taught, how exactly, and how fast: the tables of
// docs/find-accuracy.md.
//
//   quillon_find_accuracy [--scenes N] [--seed S] [--only TABLE] [FOLDER]
//
// FOLDER has photographs (.png, .jpg); without it there are drawn scenes only.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "accuracy/scenes.h"
#include "finder/finder.h"
#include "support/synthetic_rows.h"
#include "support/template_search.h"

namespace quillon::accuracy {
namespace {

using finder::FindOptions;
using finder::Match;

struct Settings {
  int scenes = 150;
  uint64_t seed = 1;
  std::string only;
  std::vector<cv::Mat> photos;
};

finder::Picture PictureOf(const cv::Mat& mat) {
  return {mat.data, mat.cols, mat.rows, static_cast<ptrdiff_t>(mat.step)};
}

double TurnBetween(double a, double b) { return std::abs(std::remainder(a - b, 360.0)); }

double CpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct Tally {
  int found = 0, trials = 0, refused = 0;
  std::vector<double> distances, turns, times;

  void Print() const {
    std::printf(" %.0f %%, %.2f px, %.2f deg |", 100.0 * found / std::max(trials, 1),
                Median(distances), Median(turns));
    std::fflush(stdout);
  }
};

// ---- by edges -----------------------------------------------------------------------------------

using MakeScene = Scene (*)(const Settings& settings, int trial, int side, double degrees,
                            cv::RNG&);

Scene MakeDrawn(const Settings&, int, int side, double degrees, cv::RNG& random) {
  return DrawnScene(side, degrees, random);
}
Scene MakePhotographed(const Settings& settings, int trial, int side, double degrees,
                       cv::RNG& random) {
  return PhotographedScene(settings.photos[trial % settings.photos.size()], side, degrees, random);
}

bool g_verbose = false;

// One scene: the best match must be the taught one.
void FindOne(const Scene& scene, const finder::Model& model, const FindOptions& options,
             Tally& tally) {
  finder::Results results;
  const double start = CpuSeconds();
  finder::Find(BestFinderKernels(), model, PictureOf(scene.image), options, results);
  tally.times.push_back(1000 * (CpuSeconds() - start));
  ++tally.trials;
  // The scene's place is that of pixel (side / 2, side / 2).
  const double half = (scene.pattern.cols / 2) - (scene.pattern.cols - 1) / 2.0;
  const double angle = scene.degrees * CV_PI / 180;
  const double x = scene.place.x - half * (std::cos(angle) - std::sin(angle));
  const double y = scene.place.y - half * (std::sin(angle) + std::cos(angle));
  constexpr double kNear = 4;  // pixels and degrees; farther is not found
  if (!results.empty()) {
    const double distance = std::hypot(results[0].x - x, results[0].y - y);
    const double turn = TurnBetween(results[0].degrees, scene.degrees);
    if (distance <= kNear && turn <= kNear) {
      ++tally.found;
      tally.distances.push_back(distance);
      tally.turns.push_back(turn);
      return;
    }
  }
  if (g_verbose) {
    const double truth = finder::Score(BestFinderKernels(), model, PictureOf(scene.image),
                                       {x, y, scene.degrees, 1}, options.polarity);
    std::printf("\n  missed %d: side %d at %.1f %.1f %.1f, score %.3f; ", tally.trials,
                scene.pattern.cols, x, y, scene.degrees, truth);
    if (!results.empty()) {
      std::printf("found %.1f %.1f %.1f, score %.3f", results[0].x, results[0].y,
                  results[0].degrees, results[0].score);
    }
    std::printf(" likeness %.2f doubts %u symmetry %d", model.likeness, model.doubts,
                model.symmetry);
    std::printf(" levels %d points %zu", model.levels, model.level[model.levels - 1].points.size());
  }
}

struct EdgeRow {
  const char* name;
  MakeScene make;
  double range;       // degrees to either side
  bool acceptedOnly;  // templates that teaching does not doubt
};

void PrintEdgeRow(const Settings& settings, const EdgeRow& row) {
  std::printf("| %s | %s |", row.name, row.range >= 180 ? "any" : "-20 to 20");
  int refused = 0, taught = 0;
  std::vector<double> times;
  for (const NamedDisturbance& disturbance : kDisturbances) {
    cv::RNG random(settings.seed);
    Tally tally;
    for (int trial = 0; tally.trials < settings.scenes && trial < 20 * settings.scenes; ++trial) {
      constexpr int kSides[] = {64, 96, 128};
      Scene scene = row.make(settings, trial, kSides[trial % 3],
                             random.uniform(-row.range, row.range), random);
      disturbance.apply(scene, random);
      finder::Model model;
      const finder::Status status =
          finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      ++taught;
      if (row.acceptedOnly && (status != finder::Status::kOk || model.doubts != 0)) {
        ++refused;
        continue;
      }
      FindOptions options;
      options.angleLow = -row.range;
      options.angleHigh = row.range;
      options.minScore = 0.3;
      options.maxCount = 1;
      FindOne(scene, model, options, tally);
    }
    tally.Print();
    times.insert(times.end(), tally.times.begin(), tally.times.end());
  }
  std::printf(" %.1f ms, accepted %d of %d\n", Median(times), taught - refused, taught);
}

void PrintEdges(const Settings& settings) {
  std::printf("| scenes | angles |");
  for (const NamedDisturbance& disturbance : kDisturbances) std::printf(" %s |", disturbance.name);
  std::printf("\n|---|---|---|---|---|---|---|---|---|\n");
  constexpr EdgeRow kRows[] = {{"drawn", MakeDrawn, 20, false},
                               {"drawn", MakeDrawn, 180, false},
                               {"photographs, any place", MakePhotographed, 20, false},
                               {"photographs, any place", MakePhotographed, 180, false},
                               {"photographs, accepted", MakePhotographed, 20, true},
                               {"photographs, accepted", MakePhotographed, 180, true}};
  for (const EdgeRow& row : kRows) {
    if (row.make == MakePhotographed && settings.photos.empty()) continue;
    PrintEdgeRow(settings, row);
  }
}

// ---- exact scenes -------------------------------------------------------------------------------

finder::Picture PictureOf(const GreyImage& image) {
  return {image.rows[0], image.width, image.height, -static_cast<ptrdiff_t>(image.stride)};
}

struct Figures {
  int truths = 0, found = 0, wrong = 0;
  std::vector<double> distances, turns, scales, times;
};

// Compares what was found with what was drawn; a match farther than two pixels from every part that
// is not found yet is wrong.
void Compare(const std::vector<test::Truth>& truths, const finder::Results& results,
             Figures& figures) {
  std::vector<bool> met(truths.size());
  figures.truths += static_cast<int>(truths.size());
  for (const Match& match : results) {
    size_t nearest = truths.size();
    double least = 2;
    for (size_t j = 0; j < truths.size(); ++j) {
      const double distance = std::hypot(truths[j].x - match.x, truths[j].y - match.y);
      if (distance < least && !met[j]) least = distance, nearest = j;
    }
    if (nearest == truths.size()) {
      ++figures.wrong;
      continue;
    }
    met[nearest] = true;
    ++figures.found;
    figures.distances.push_back(least);
    figures.turns.push_back(TurnBetween(match.degrees, truths[nearest].angle));
    figures.scales.push_back(std::abs(match.scale - truths[nearest].scale));
  }
}

void RunSynthetic(test::SceneSpec spec, finder::Way way, double minScore, Figures& figures) {
  GreyImage pattern, scene;
  const std::vector<test::Truth> truths = test::MakeScene(spec, pattern, scene);
  finder::Model model;
  finder::TeachOptions teaching;
  teaching.way = way;
  finder::Results results;
  if (finder::Teach(BestFinderKernels(), PictureOf(pattern), teaching, model) ==
      finder::Status::kOk) {
    FindOptions options;
    options.angleLow = spec.angleMin;
    options.angleHigh = spec.angleMax;
    options.scaleLow = spec.scaleMin;
    options.scaleHigh = spec.scaleMax;
    options.minScore = minScore;
    const double start = CpuSeconds();
    finder::Find(BestFinderKernels(), model, PictureOf(scene), options, results);
    figures.times.push_back(1000 * (CpuSeconds() - start));
  }
  const int before = figures.found;
  Compare(truths, results, figures);
  if (g_verbose && figures.found - before < static_cast<int>(truths.size())) {
    for (const test::Truth& t : truths) {
      double least = 1e9;
      for (const Match& m : results) least = std::min(least, std::hypot(m.x - t.x, m.y - t.y));
      if (least < 2) continue;
      std::printf("  missed seed %u at %.1f %.1f, %.1f deg, x %.2f: score there %.3f\n", spec.seed,
                  t.x, t.y, t.angle, t.scale,
                  finder::Score(BestFinderKernels(), model, PictureOf(scene),
                                {t.x, t.y, t.angle, t.scale}, finder::Polarity::kSame));
    }
  }
}

double Mean(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return values.empty() ? 0 : sum / static_cast<double>(values.size());
}
double Largest(const std::vector<double>& values) {
  return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

void PrintFigures(const Figures& f) {
  std::printf(" %d | %d | %d | %.3f, %.3f px | %.3f, %.3f deg | %.4f | %.1f ms |\n", f.truths,
              f.found, f.wrong, Mean(f.distances), Largest(f.distances), Mean(f.turns),
              Largest(f.turns), Mean(f.scales), Median(f.times));
  std::fflush(stdout);
}

constexpr char kFiguresHeader[] =
    " instances | found | false | position mean, worst | angle mean, worst | scale mean | time |\n"
    "|---|---|---|---|---|---|---|---|---|\n";

void PrintGrey(const Settings& settings) {
  std::printf("| by grey | noise, gain |%s", kFiguresHeader);
  for (const test::SyntheticRow& row : test::SyntheticRows()) {
    Figures figures;
    const int scenes = std::max(1, row.scenes * settings.scenes / 150);
    for (int i = 0; i < scenes; ++i) {
      test::SceneSpec spec = row.spec;
      spec.seed += static_cast<uint32_t>(i + 1000 * (settings.seed - 1));
      RunSynthetic(spec, finder::Way::kGrey, 0.6, figures);
    }
    std::printf("| %s | %s |", row.name, row.spec.noise > 0 ? "10, 0.7" : "0, 1");
    PrintFigures(figures);
  }
}

void PrintScales(const Settings& settings) {
  std::printf("| scale 0.5 to 2, any angle | noise |%s", kFiguresHeader);
  for (const finder::Way way : {finder::Way::kEdges, finder::Way::kGrey}) {
    for (const double noise : {0.0, 15.0}) {
      Figures figures;
      for (int i = 0; i < std::max(1, settings.scenes / 4); ++i) {
        test::SceneSpec spec = {.templateWidth = 80,
                                .templateHeight = 80,
                                .width = 1280,
                                .height = 1024,
                                .instances = 4,
                                .angleMin = -180,
                                .angleMax = 180,
                                .scaleMin = 0.5,
                                .scaleMax = 2,
                                .noise = noise};
        spec.seed = static_cast<uint32_t>(5000 + i + 1000 * settings.seed);
        RunSynthetic(spec, way, 0.5, figures);
      }
      std::printf("| by %s | %.0f |", way == finder::Way::kEdges ? "edges" : "grey", noise);
      PrintFigures(figures);
    }
  }
}

// ---- parts side by side, and on each other ------------------------------------------------------

// Lays a pattern into a picture at a pose.
void Lay(const cv::Mat& pattern, const finder::Pose& pose, cv::Mat& image) {
  const double a = pose.degrees * CV_PI / 180, c = pose.scale * std::cos(a),
               s = pose.scale * std::sin(a);
  const double u = (pattern.cols - 1) / 2.0, v = (pattern.rows - 1) / 2.0;
  const cv::Mat turn =
      (cv::Mat_<double>(2, 3) << c, -s, pose.x - c * u + s * v, s, c, pose.y - s * u - c * v);
  cv::Mat laid, weight;
  cv::warpAffine(pattern, laid, turn, image.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
  cv::warpAffine(cv::Mat(pattern.size(), CV_8UC1, cv::Scalar(255)), weight, turn, image.size(),
                 cv::INTER_LINEAR);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      const double w = weight.at<uchar>(y, x) / 255.0;
      uchar& pixel = image.at<uchar>(y, x);
      pixel = cv::saturate_cast<uchar>(w * laid.at<uchar>(y, x) + (1 - w) * pixel);
    }
  }
}

cv::Mat PartOf(cv::Size size, cv::RNG& random) {
  cv::Mat part(size, CV_8UC1, cv::Scalar(random.uniform(60, 130)));
  for (int i = 0; i < size.area() / 400; ++i) {
    const cv::Scalar value(random.uniform(20, 240));
    const cv::Point at(random.uniform(4, size.width - 4), random.uniform(4, size.height - 4));
    const int reach = std::max(4, std::min(size.width, size.height) / 3);
    if (random.uniform(0, 2) == 0) {
      cv::circle(part, at, random.uniform(reach / 2, reach), value, cv::FILLED, cv::LINE_AA);
    } else {
      cv::rectangle(
          part,
          {at.x, at.y, random.uniform(reach / 2, 2 * reach), random.uniform(reach / 2, reach)},
          value, cv::FILLED);
    }
  }
  return part;
}

void FindParts(const cv::Mat& part, const cv::Mat& image, const std::vector<test::Truth>& truths,
               finder::Way way, double minScore, double maxOverlap, Figures& figures) {
  finder::Model model;
  finder::TeachOptions teaching;
  teaching.way = way;
  finder::Results results;
  if (finder::Teach(BestFinderKernels(), PictureOf(part), teaching, model) == finder::Status::kOk) {
    FindOptions options;
    options.angleLow = -180;
    options.angleHigh = 180;
    options.minScore = minScore;
    options.maxOverlap = maxOverlap;
    options.maxCount = 20;
    const double start = CpuSeconds();
    finder::Find(BestFinderKernels(), model, PictureOf(image), options, results);
    figures.times.push_back(1000 * (CpuSeconds() - start));
  }
  if (g_verbose) {
    for (const test::Truth& t : truths) {
      std::printf("  drawn %.1f %.1f, %.1f deg: score there %.3f\n", t.x, t.y, t.angle,
                  finder::Score(BestFinderKernels(), model, PictureOf(image),
                                {t.x, t.y, t.angle, t.scale}, finder::Polarity::kSame));
    }
    for (const Match& m : results)
      std::printf("  found %.1f %.1f, %.1f deg: %.3f\n", m.x, m.y, m.degrees, m.score);
  }
  Compare(truths, results, figures);
}

void PrintSideBySide(const Settings& settings) {
  std::printf("| 160 x 24 side by side | by |%s", kFiguresHeader);
  for (const int rows : {1, 3}) {
    for (const int degrees : {15, 30, 45, 60}) {
      for (const finder::Way way : {finder::Way::kGrey, finder::Way::kEdges}) {
        Figures figures;
        cv::RNG random(settings.seed);
        for (int i = 0; i < std::max(1, settings.scenes / 10); ++i) {
          const cv::Mat part = PartOf({160, 24}, random);
          cv::Mat image(900, 900, CV_8UC1, cv::Scalar(90));
          std::vector<test::Truth> truths;
          const double a = degrees * CV_PI / 180;
          for (int k = 0; k < 6 * rows; ++k) {
            // Next to each other along the short side; rows along the long one.
            const double along = (k / 6 - (rows - 1) / 2.0) * 161, across = (k % 6 - 2.5) * 25;
            const double x =
                450 + along * std::cos(a) - across * std::sin(a) + random.uniform(-0.5, 0.5);
            const double y =
                450 + along * std::sin(a) + across * std::cos(a) + random.uniform(-0.5, 0.5);
            truths.push_back({x, y, static_cast<double>(degrees), 1});
            Lay(part, {x, y, static_cast<double>(degrees), 1}, image);
          }
          FindParts(part, image, truths, way, 0.5, 0.5, figures);
        }
        std::printf("| %d x 6 at %d deg | %s |", rows, degrees,
                    way == finder::Way::kGrey ? "grey" : "edges");
        PrintFigures(figures);
      }
    }
  }
}

// Two parts, the second laid over a third of the first.
void PrintCovered(const Settings& settings) {
  std::printf("| one covers a third | by |%s", kFiguresHeader);
  for (const finder::Way way : {finder::Way::kGrey, finder::Way::kEdges}) {
    Figures figures;
    cv::RNG random(settings.seed);
    int both = 0, scenes = 2 * settings.scenes;
    for (int i = 0; i < scenes; ++i) {
      const cv::Mat part = PartOf({96, 96}, random);
      cv::Mat image(480, 640, CV_8UC1, cv::Scalar(90));
      const double first = random.uniform(-180.0, 180.0), second = random.uniform(-180.0, 180.0);
      const double a = random.uniform(0.0, 2 * CV_PI);
      const finder::Pose lower = {random.uniform(200.0, 440.0), random.uniform(200.0, 280.0), first,
                                  1};
      // The distance at which they share a third, by halving.
      double near = 0, far = 140;
      const cv::RotatedRect under({static_cast<float>(lower.x), static_cast<float>(lower.y)},
                                  {96, 96}, static_cast<float>(first));
      for (int k = 0; k < 30; ++k) {
        const double middle = (near + far) / 2;
        const cv::RotatedRect over({static_cast<float>(lower.x + middle * std::cos(a)),
                                    static_cast<float>(lower.y + middle * std::sin(a))},
                                   {96, 96}, static_cast<float>(second));
        std::vector<cv::Point2f> shared;
        cv::rotatedRectangleIntersection(under, over, shared);
        const double area = shared.size() < 3 ? 0 : std::abs(cv::contourArea(shared));
        (area > 96 * 96 / 3.0 ? near : far) = middle;
      }
      const finder::Pose upper = {lower.x + near * std::cos(a), lower.y + near * std::sin(a),
                                  second, 1};
      Lay(part, lower, image);
      Lay(part, upper, image);
      const int before = figures.found;
      FindParts(part, image, {{lower.x, lower.y, first, 1}, {upper.x, upper.y, second, 1}}, way,
                0.3, 0.5, figures);
      both += figures.found - before == 2;
    }
    std::printf("| both in %.1f %% of %d | %s |", 100.0 * both / scenes, scenes,
                way == finder::Way::kGrey ? "grey" : "edges");
    PrintFigures(figures);
  }
}

void PrintNarrow(const Settings& settings) {
  std::printf("| edges, drawn, range around the truth | found | time |\n|---|---|---|\n");
  for (const double range : {1.0, 3.0, 5.0, 20.0}) {
    cv::RNG random(settings.seed);
    Tally tally;
    for (int trial = 0; trial < settings.scenes; ++trial) {
      const double degrees = random.uniform(-180.0, 180.0);
      const Scene scene = DrawnScene(96, degrees, random);
      finder::Model model;
      finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      FindOptions options;
      const double off = random.uniform(-range, range);
      options.angleLow = degrees + off - range;
      options.angleHigh = degrees + off + range;
      options.maxCount = 1;
      FindOne(scene, model, options, tally);
    }
    std::printf("| %.0f |", range);
    tally.Print();
    std::printf(" %.1f ms |\n", Median(tally.times));
  }
}

// ---- time ---------------------------------------------------------------------------------------

// The least of a few runs, in milliseconds of processor time.
template <class Run>
double LeastTime(const Run& run) {
  double least = 1e9;
  const double begin = CpuSeconds();
  for (int i = 0; i < 20 && (i < 3 || CpuSeconds() - begin < 0.4); ++i) {
    const double start = CpuSeconds();
    run();
    least = std::min(least, CpuSeconds() - start);
  }
  return 1000 * least;
}

struct TimeRow {
  const char* name;
  finder::Way way;
  int side, instances;
  double range;
  int width, height;
  double scaleLow, scaleHigh;
  int peerLevels;  // of the pyramid of matchTemplate; 0: no peer
};

void PrintTimeRow(const TimeRow& row) {
  const test::SceneSpec spec = {.templateWidth = row.side,
                                .templateHeight = row.side,
                                .width = row.width,
                                .height = row.height,
                                .instances = row.instances,
                                .angleMin = -row.range,
                                .angleMax = row.range,
                                .scaleMin = row.scaleLow,
                                .scaleMax = row.scaleHigh,
                                .seed = 77};
  GreyImage pattern, scene;
  const std::vector<test::Truth> truths = test::MakeScene(spec, pattern, scene);
  finder::TeachOptions teaching;
  teaching.way = row.way;
  finder::Model model;
  finder::Teach(BestFinderKernels(), PictureOf(pattern), teaching, model);
  FindOptions options;
  options.angleLow = -row.range;
  options.angleHigh = row.range;
  options.scaleLow = row.scaleLow;
  options.scaleHigh = row.scaleHigh;
  options.minScore = 0.6;
  options.maxCount = row.instances;
  finder::Results results;
  const double time = LeastTime(
      [&] { finder::Find(BestFinderKernels(), model, PictureOf(scene), options, results); });
  Figures figures;
  Compare(truths, results, figures);
  std::printf("| %s | %d of %d | %.2f ms |", row.name, figures.found, figures.truths, time);
  if (row.peerLevels > 0) {
    const auto toMat = [](const GreyImage& image) {
      cv::Mat mat(image.height, image.width, CV_8UC1);
      for (int y = 0; y < image.height; ++y) {
        std::memcpy(mat.ptr(y), image.rows[y], static_cast<size_t>(image.width));
      }
      return mat;
    };
    std::vector<double> angles = {0};
    if (row.range > 0) {
      angles.clear();
      // About a pixel of the coarsest level at the template's corner.
      const double step = 57.3 * (1 << row.peerLevels) / (0.7 * row.side);
      for (double a = -row.range; a <= row.range; a += step) angles.push_back(a);
    }
    const bench::TemplateSearch search(toMat(pattern), row.peerLevels, angles);
    const cv::Mat image = toMat(scene);
    const double peer = LeastTime([&] { search.Find(image); });
    std::printf(" %.2f ms, %.1f x", peer, peer / time);
  }
  std::printf(" |\n");
  std::fflush(stdout);
}

// A photograph, enlarged and repeated mirrored until it fills 1280 x 1024.
cv::Mat FillScreen(const cv::Mat& photo) {
  cv::Mat filled;
  cv::copyMakeBorder(photo, filled, 0, std::max(0, 1024 - photo.rows), 0,
                     std::max(0, 1280 - photo.cols), cv::BORDER_REFLECT_101);
  return filled({0, 0, 1280, 1024}).clone();
}

void PrintTimes(const Settings& settings) {
  using finder::Way;
  cv::setNumThreads(1);
  std::printf(
      "| 1280 x 1024 where nothing else is said | found | time | matchTemplate's pyramid |\n"
      "|---|---|---|---|\n");
  constexpr TimeRow kRows[] = {
      {"grey, 64 x 64, no angles", Way::kGrey, 64, 1, 0, 1280, 1024, 1, 1, 3},
      {"grey, 64 x 64, 20 deg", Way::kGrey, 64, 1, 20, 1280, 1024, 1, 1, 3},
      {"grey, 128 x 128, 20 deg", Way::kGrey, 128, 1, 20, 1280, 1024, 1, 1, 4},
      {"grey, 64 x 64, any angle, 20 parts", Way::kGrey, 64, 20, 180, 1280, 1024, 1, 1, 0},
      {"edges, 96 x 96, 20 deg", Way::kEdges, 96, 1, 20, 1280, 1024, 1, 1, 0},
      {"edges, 96 x 96, any angle", Way::kEdges, 96, 1, 180, 1280, 1024, 1, 1, 0},
      {"edges, 320 x 256 pixels", Way::kEdges, 96, 1, 180, 320, 256, 1, 1, 0},
      {"edges, 640 x 512 pixels", Way::kEdges, 96, 1, 180, 640, 512, 1, 1, 0},
      {"edges, 2560 x 2048 pixels", Way::kEdges, 96, 1, 180, 2560, 2048, 1, 1, 0},
      {"edges, 5 deg", Way::kEdges, 96, 1, 5, 1280, 1024, 1, 1, 0},
      {"edges, 60 deg", Way::kEdges, 96, 1, 60, 1280, 1024, 1, 1, 0},
      {"edges, any angle, scale 0.9 to 1.1", Way::kEdges, 96, 1, 180, 1280, 1024, 0.9, 1.1, 0},
      {"edges, any angle, scale 0.5 to 2", Way::kEdges, 96, 1, 180, 1280, 1024, 0.5, 2, 0},
      {"edges, any angle, 5 parts", Way::kEdges, 96, 5, 180, 1280, 1024, 1, 1, 0},
      {"edges, any angle, 20 parts", Way::kEdges, 96, 20, 180, 1280, 1024, 1, 1, 0}};
  for (const TimeRow& row : kRows) PrintTimeRow(row);
  // Photographs: the median of one scene each.
  for (const double range : {20.0, 180.0}) {
    if (settings.photos.empty()) break;
    std::vector<double> times;
    cv::RNG random(settings.seed);
    int found = 0;
    for (const cv::Mat& photo : settings.photos) {
      const Scene scene =
          PhotographedScene(FillScreen(photo), 96, random.uniform(-range, range), random);
      finder::Model model;
      finder::Teach(BestFinderKernels(), PictureOf(scene.pattern), {}, model);
      FindOptions options;
      options.angleLow = -range;
      options.angleHigh = range;
      options.minScore = 0.6;
      options.maxCount = 1;
      Tally tally;
      finder::Results results;
      times.push_back(LeastTime([&] {
        finder::Find(BestFinderKernels(), model, PictureOf(scene.image), options, results);
      }));
      FindOne(scene, model, options, tally);
      found += tally.found;
    }
    std::printf(
        "| edges, 96 x 96, photographs, %.0f deg | %d of %zu | median %.2f, worst %.2f ms | |\n",
        range, found, times.size(), Median(times), Largest(times));
  }
}

}  // namespace
}  // namespace quillon::accuracy

int main(int argc, char** argv) {
  using namespace quillon::accuracy;
  Settings settings;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--scenes" && i + 1 < argc) {
      settings.scenes = std::atoi(argv[++i]);
    } else if (option == "--seed" && i + 1 < argc) {
      settings.seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (option == "--only" && i + 1 < argc) {
      settings.only = argv[++i];
    } else if (option == "--verbose") {
      g_verbose = true;
    } else {
      settings.photos = ReadPhotographs(option);
    }
  }
  constexpr struct {
    const char* name;
    void (*print)(const Settings&);
  } kTables[] = {{"edges", PrintEdges},     {"narrow", PrintNarrow},   {"grey", PrintGrey},
                 {"side", PrintSideBySide}, {"covered", PrintCovered}, {"scale", PrintScales},
                 {"time", PrintTimes}};
  for (const auto& table : kTables) {
    if (!settings.only.empty() && settings.only != table.name) continue;
    table.print(settings);
    std::printf("\n");
  }
  return 0;
}
