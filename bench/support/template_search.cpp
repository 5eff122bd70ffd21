#include "support/template_search.h"

#include <opencv2/imgproc.hpp>

namespace quillon::bench {
namespace {

// Every level is half of the one before.
std::vector<cv::Mat> Pyramid(const cv::Mat& image, int levels) {
  std::vector<cv::Mat> pyramid = {image};
  for (int k = 1; k <= levels; ++k) {
    cv::Mat half;
    cv::resize(pyramid.back(), half, cv::Size(image.cols >> k, image.rows >> k), 0, 0,
               cv::INTER_AREA);
    pyramid.push_back(half);
  }
  return pyramid;
}

// Matches within `area`, a part of the image, and keeps the better of both.
void MatchWithin(const cv::Mat& image, const cv::Rect& area, const cv::Mat& pattern, double degrees,
                 TemplateMatch& best) {
  const cv::Rect inside = area & cv::Rect(0, 0, image.cols, image.rows);
  if (inside.width < pattern.cols || inside.height < pattern.rows) return;
  cv::Mat scores;
  cv::matchTemplate(image(inside), pattern, scores, cv::TM_CCOEFF_NORMED);
  double score = 0;
  cv::Point at;
  cv::minMaxLoc(scores, nullptr, &score, nullptr, &at);
  if (score <= best.score) return;
  best = {at + inside.tl() + cv::Point(pattern.cols / 2, pattern.rows / 2), degrees, score};
}

}  // namespace

cv::Mat TurnedPattern(const cv::Mat& pattern, double degrees) {
  if (degrees == 0) return pattern;
  const cv::Point2f centre(static_cast<float>(pattern.cols / 2),
                           static_cast<float>(pattern.rows / 2));
  cv::Mat turned;
  cv::warpAffine(pattern, turned, cv::getRotationMatrix2D(centre, -degrees, 1), pattern.size(),
                 cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  return turned;
}

TemplateSearch::TemplateSearch(const cv::Mat& pattern, int levels,
                               const std::vector<double>& coarseAngles)
    : levels_(Pyramid(pattern, levels)),
      step_(coarseAngles.size() > 1 ? coarseAngles[1] - coarseAngles[0] : 0) {
  for (double degrees : coarseAngles) {
    coarse_.push_back({degrees, TurnedPattern(levels_.back(), degrees)});
  }
}

TemplateMatch TemplateSearch::Find(const cv::Mat& image) const {
  constexpr int kReach = 2;  // positions to each side at the finer levels
  const int top = static_cast<int>(levels_.size()) - 1;
  const std::vector<cv::Mat> images = Pyramid(image, top);
  TemplateMatch best;
  for (const Turned& turned : coarse_) {
    const cv::Mat& coarsest = images.back();
    MatchWithin(coarsest, {0, 0, coarsest.cols, coarsest.rows}, turned.pattern, turned.degrees,
                best);
  }
  double step = step_ / 2;
  for (int k = top - 1; k >= 0; --k, step /= 2) {
    const cv::Mat& pattern = levels_[static_cast<size_t>(k)];
    const TemplateMatch coarser = best;
    const cv::Point corner =
        2 * coarser.centre - cv::Point(pattern.cols / 2 + kReach, pattern.rows / 2 + kReach);
    const cv::Rect area(corner, cv::Size(pattern.cols + 2 * kReach, pattern.rows + 2 * kReach));
    best = {};
    for (int i = -1; i <= 1; ++i) {
      if (i != 0 && step_ == 0) continue;
      const double degrees = coarser.degrees + i * step;
      MatchWithin(images[static_cast<size_t>(k)], area, TurnedPattern(pattern, degrees), degrees,
                  best);
    }
  }
  return best;
}

}  // namespace quillon::bench
