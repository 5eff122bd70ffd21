// What one would write with OpenCV to find a template fast: matchTemplate on the coarsest level of
// a pyramid, then in small windows down to full resolution; for angles with turned templates.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace quillon::bench {

struct TemplateMatch {
  cv::Point centre;
  double degrees = 0;  // clockwise as displayed
  double score = -1;
};

class TemplateSearch {
 public:
  // Templates of the coarsest level are turned here, before any search.
  TemplateSearch(const cv::Mat& pattern, int levels, const std::vector<double>& coarseAngles);
  TemplateMatch Find(const cv::Mat& image) const;

 private:
  struct Turned {
    double degrees;
    cv::Mat pattern;
  };

  std::vector<cv::Mat> levels_;
  std::vector<Turned> coarse_;
  double step_;  // between coarse angles
};

// `pattern` turned clockwise about its pixel (width / 2, height / 2), at its size.
cv::Mat TurnedPattern(const cv::Mat& pattern, double degrees);

}  // namespace quillon::bench
