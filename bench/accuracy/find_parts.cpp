// The finder on parts side by side, and on each other.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "accuracy/find_figures.h"

namespace quillon::accuracy {
namespace {

using finder::FindOptions;
using finder::Match;

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

void FindParts(const Settings& settings, const cv::Mat& part, const cv::Mat& image,
               const std::vector<test::Truth>& truths, finder::Way way, double minScore,
               double maxOverlap, Figures& figures) {
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
  if (settings.isVerbose) {
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

}  // namespace

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
          FindParts(settings, part, image, truths, way, 0.5, 0.5, figures);
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
      FindParts(settings, part, image,
                {{lower.x, lower.y, first, 1}, {upper.x, upper.y, second, 1}}, way, 0.3, 0.5,
                figures);
      both += figures.found - before == 2;
    }
    std::printf("| both in %.1f %% of %d | %s |", 100.0 * both / scenes, scenes,
                way == finder::Way::kGrey ? "grey" : "edges");
    PrintFigures(figures);
  }
}

}  // namespace quillon::accuracy
