// Scenes for measuring searches: drawn parts and pieces of photographs, turned, moved and
// disturbed.
#pragma once

#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace quillon::accuracy {

struct Scene {
  cv::Mat pattern, image;
  cv::Point2d place;   // of the pattern's pixel (width / 2, height / 2)
  double degrees = 0;  // clockwise
};

// A part of several shapes on an even ground.
Scene DrawnScene(int side, double degrees, cv::RNG& random);
// A piece of a photograph: the place with the most contrast of eight.
Scene PhotographedScene(const cv::Mat& photo, int side, double degrees, cv::RNG& random);

using Disturbance = void (*)(Scene&, cv::RNG&);
struct NamedDisturbance {
  const char* name;
  Disturbance apply;
};
constexpr int kDisturbanceCount = 7;
extern const NamedDisturbance kDisturbances[kDisturbanceCount];

// The photographs (.png, .jpg) of a folder that have 300 pixels on each side, by name.
std::vector<cv::Mat> ReadPhotographs(const std::filesystem::path& folder);

double Median(std::vector<double> values);

}  // namespace quillon::accuracy
