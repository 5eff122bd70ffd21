#include "accuracy/scenes.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>

namespace quillon::accuracy {
namespace {

const cv::Size kDrawn(640, 480);

// ---- scenes -------------------------------------------------------------------------------------

cv::Point RandomPoint(cv::RNG& random, cv::Rect within) {
  return {random.uniform(within.x, within.br().x), random.uniform(within.y, within.br().y)};
}

void DrawShape(cv::Mat& image, cv::RNG& random, cv::Rect within, int largest) {
  const cv::Scalar value(random.uniform(20, 240));
  const int size = random.uniform(largest / 4, largest);
  const cv::Point at = RandomPoint(random, within);
  switch (random.uniform(0, 3)) {
    case 0:
      cv::circle(image, at, size / 2, value, cv::FILLED, cv::LINE_AA);
      break;
    case 1:
      cv::rectangle(image, {at.x - size / 2, at.y - size / 3, size, 2 * size / 3}, value,
                    cv::FILLED);
      break;
    default:
      cv::line(image, at, at + cv::Point(size / 2, random.uniform(-size, size)), value, 4,
               cv::LINE_AA);
  }
}

// The part of `world` around `centre`, without turning, and all of it turned about that point,
// which moves a little.
Scene TurnAbout(const cv::Mat& world, cv::Point centre, int side, double degrees, cv::RNG& random) {
  Scene scene;
  scene.pattern = world({centre.x - side / 2, centre.y - side / 2, side, side}).clone();
  scene.degrees = degrees;
  scene.place =
      cv::Point2d(centre) + cv::Point2d(random.uniform(-9.0, 9.0), random.uniform(-9.0, 9.0));
  cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(centre), -degrees, 1);
  turn.at<double>(0, 2) += scene.place.x - centre.x;
  turn.at<double>(1, 2) += scene.place.y - centre.y;
  cv::warpAffine(world, scene.image, turn, world.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  return scene;
}

}  // namespace

Scene DrawnScene(int side, double degrees, cv::RNG& random) {
  cv::Mat world(kDrawn, CV_8UC1, cv::Scalar(90));
  const int reach = side;
  const cv::Point centre =
      RandomPoint(random, {reach, reach, world.cols - 2 * reach, world.rows - 2 * reach});
  const cv::Rect part(centre.x - side / 2 + side / 5, centre.y - side / 2 + side / 5, 3 * side / 5,
                      3 * side / 5);
  cv::Mat mask = world.clone();
  for (int i = 0; i < 7; ++i) DrawShape(mask, random, part, side / 2);
  const cv::Rect inside(centre.x - side / 2 + 3, centre.y - side / 2 + 3, side - 6, side - 6);
  mask(inside).copyTo(world(inside));
  return TurnAbout(world, centre, side, degrees, random);
}

Scene PhotographedScene(const cv::Mat& photo, int side, double degrees, cv::RNG& random) {
  const int reach = side * 3 / 4 + 10;
  const cv::Rect within(reach, reach, photo.cols - 2 * reach, photo.rows - 2 * reach);
  // A place with something to see: the best of a few.
  cv::Point best;
  double most = -1;
  for (int i = 0; i < 8; ++i) {
    const cv::Point centre = RandomPoint(random, within);
    cv::Scalar mean, deviation;
    cv::meanStdDev(photo({centre.x - side / 2, centre.y - side / 2, side, side}), mean, deviation);
    if (deviation[0] > most) most = deviation[0], best = centre;
  }
  return TurnAbout(photo, best, side, degrees, random);
}

namespace {

// ---- disturbances -------------------------------------------------------------------------------

void Nothing(Scene&, cv::RNG&) {}

void Gain(Scene& scene, cv::RNG& random) {
  scene.image.convertTo(scene.image, -1, random.uniform(0.4, 1.8));
}

void GradientLight(Scene& scene, cv::RNG&) {
  for (int y = 0; y < scene.image.rows; ++y) {
    for (int x = 0; x < scene.image.cols; ++x) {
      uchar& pixel = scene.image.at<uchar>(y, x);
      const double light = 0.5 + 0.5 * x / scene.image.cols + 0.5 * y / scene.image.rows;
      pixel = cv::saturate_cast<uchar>(pixel * light);
    }
  }
}

void Noise(Scene& scene, cv::RNG& random) {
  cv::Mat noise(scene.image.size(), CV_16SC1), sum;
  random.fill(noise, cv::RNG::NORMAL, 0, 15);
  scene.image.convertTo(sum, CV_16S);
  cv::Mat(sum + noise).convertTo(scene.image, CV_8U);
}

// 30 % of the template's area, from one of its sides.
void Occlusion(Scene& scene, cv::RNG& random) {
  const double side = scene.pattern.cols, a = random.uniform(0, 4) * CV_PI / 2;
  const double away = side / 2 - 0.15 * side;
  const cv::Point2f centre(static_cast<float>(scene.place.x + away * std::cos(a)),
                           static_cast<float>(scene.place.y + away * std::sin(a)));
  const cv::RotatedRect cover(centre, {static_cast<float>(0.3 * side), static_cast<float>(side)},
                              static_cast<float>(a * 180 / CV_PI));
  cv::Point2f corners[4];
  cover.points(corners);
  const std::vector<cv::Point> polygon(corners, corners + 4);
  cv::fillConvexPoly(scene.image, polygon, cv::Scalar(random.uniform(0, 255)));
}

// Shapes as large as the template's own, everywhere but on it.
void Clutter(Scene& scene, cv::RNG& random) {
  const cv::Mat clean = scene.image.clone();
  const int side = scene.pattern.cols;
  for (int i = 0; i < 40; ++i) {
    DrawShape(scene.image, random, {0, 0, clean.cols, clean.rows}, side / 2);
  }
  cv::Mat part(clean.size(), CV_8UC1, cv::Scalar(0));
  cv::circle(part, scene.place, side * 7 / 10, 255, cv::FILLED);
  clean.copyTo(scene.image, part);
}

void Everything(Scene& scene, cv::RNG& random) {
  for (Disturbance disturb : {Clutter, Occlusion, GradientLight, Gain, Noise})
    disturb(scene, random);
}

}  // namespace

const NamedDisturbance kDisturbances[kDisturbanceCount] = {
    {"none", Nothing},           {"gain 0.4 to 1.8", Gain},    {"light 0.5 to 1.5", GradientLight},
    {"noise, sigma 15", Noise},  {"30 % occluded", Occlusion}, {"clutter", Clutter},
    {"all of these", Everything}};

double Median(std::vector<double> values) {
  if (values.empty()) return NAN;
  std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

std::vector<cv::Mat> ReadPhotographs(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) paths.push_back(entry);
  std::sort(paths.begin(), paths.end());
  std::vector<cv::Mat> photos;
  for (const auto& path : paths) {
    if (path.extension() != ".png" && path.extension() != ".jpg") continue;
    cv::Mat photo = cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
    if (std::min(photo.cols, photo.rows) >= 300) photos.push_back(photo);
  }
  return photos;
}

}  // namespace quillon::accuracy
