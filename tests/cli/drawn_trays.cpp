#include "cli/drawn_trays.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numbers>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/samples/tray.h"

namespace quillon::test {
namespace {

using kit::Point;

constexpr kit::PictureSize kSize = {1024, 768};
constexpr kit::PictureSize kTray = {1000, 740};             // in the middle of the picture
constexpr double kMmPerPixel = 0.05, kSquare = 5;           // of the drawn tray; of the board
constexpr double kPixelsPerSquare = kSquare / kMmPerPixel;  // of the drawn tray
constexpr int kAcross = 11, kDown = 8;                      // inner corners of the board
constexpr double kBlur = 0.8, kNoise = 4;
constexpr int kFine = 3;  // pixels that a tray is drawn with, a side for each
constexpr double kDiameter = 0.85, kLeg = 5.2;
const double kDistance = std::hypot(3.2, 3.25);

// A number of [-1, 1] for each camera.
double Chance(std::mt19937_64& random) {
  return std::uniform_real_distribution<double>(-1, 1)(random);
}

kit::Lens SomeLens(std::mt19937_64& random) {
  const double focal = 1400 + 60 * Chance(random);
  const double bend = -0.2 + 0.08 * Chance(random);
  return {focal,
          focal * (1 + 0.005 * Chance(random)),
          512 + 15 * Chance(random),
          384 + 15 * Chance(random),
          {bend, -bend / 3, 0.001 * Chance(random), 0.001 * Chance(random), 0}};
}

// The middle of the board before the middle of the camera, as far away as makes a pixel of the tray
// about one of the picture, turned by these radians and moved by some squares.
kit::BoardPlace Before(const kit::Lens& lens, std::array<double, 3> turn, Point moved) {
  kit::BoardPlace place = {turn, {0, 0, 1e6}};
  // Where the board's middle comes to lie when it is turned about its first corner.
  const Point middle = place.Seen((kAcross - 1) / 2.0, (kDown - 1) / 2.0);
  place.shift = {moved.x - middle.x * 1e6, moved.y - middle.y * 1e6, lens.fx / kPixelsPerSquare};
  return place;
}

kit::BoardPlace TrayPlace(const kit::Lens& lens, std::mt19937_64& random) {
  return Before(lens, {0.06 * Chance(random), 0.06 * Chance(random), 0.05 * Chance(random)},
                {0, 0});
}

double Between(const GreyImage& image, Point at) {
  const double x = std::clamp(at.x, 0.0, image.width - 1.001);
  const double y = std::clamp(at.y, 0.0, image.height - 1.001);
  const int left = static_cast<int>(x), top = static_cast<int>(y);
  const unsigned char *here = image.rows[top] + left, *below = image.rows[top + 1] + left;
  const double fx = x - left, fy = y - top;
  return (1 - fy) * ((1 - fx) * here[0] + fx * here[1]) +
         fy * ((1 - fx) * below[0] + fx * below[1]);
}

}  // namespace

TrayCamera::TrayCamera(uint64_t seed, const std::string& file)
    : random_(seed),
      lens_(SomeLens(random_)),
      place_(TrayPlace(lens_, random_)),
      view_(lens_, place_, kSize, 2) {
  const kit::BoardPlace places[] = {place_,
                                    Before(lens_, {0.35, 0.1, -0.1}, {0.5, 0.5}),
                                    Before(lens_, {-0.35, 0.15, 0.1}, {-0.5, 0.5}),
                                    Before(lens_, {0.1, 0.4, 0.2}, {0.5, -0.5}),
                                    Before(lens_, {0.1, -0.4, -0.15}, {-0.5, -0.5}),
                                    Before(lens_, {-0.2, -0.2, 0.8}, {0, 0})};
  std::vector<kit::BoardView> views;
  for (const kit::BoardPlace& place : places) {
    const auto board = [](Point at) { return 40 + 170 * Chessboard(at, kAcross, kDown, 0.01); };
    DrawnPicture drawn = PlaneView(lens_, place, kSize, 2).Draw(board);
    drawn.Blur(kBlur);
    GreyImage image;
    drawn.To(image, kNoise, random_);
    views.push_back(kit::ViewOfChessboard("board", image, {kAcross, kDown}));
  }
  kit::Camera camera = kit::FitCamera(views, kSize);
  kit::RequireResidualsWithin(kit::kMostResiduals, camera, views);
  camera.square = kSquare;
  camera.unit = "mm";
  rms_ = camera.rms;
  kit::WriteFile(file, kit::CameraText(camera, views));
}

void TrayCamera::Take(uint32_t seed, GreyImage& image, int& brackets) {
  ColourImage tray;
  std::vector<kit::DrawnPart> parts;
  kit::DrawTray(seed, kTray.width, kTray.height, tray, parts, kFine);
  brackets =
      static_cast<int>(std::count_if(parts.begin(), parts.end(), [](const kit::DrawnPart& part) {
        return part.kind == "bracket";
      }));
  GreyImage grey;
  IxColorToGray(&tray, &grey);
  DrawnPicture drawn = view_.Draw([&](Point at) {
    const double x = (at.x - (kAcross - 1) / 2.0) * kPixelsPerSquare + kTray.width / 2.0;
    const double y = (at.y - (kDown - 1) / 2.0) * kPixelsPerSquare + kTray.height / 2.0;
    return Between(grey, {x * kFine, y * kFine});
  });
  drawn.Blur(kBlur);
  drawn.To(image, kNoise, random_);
}

std::string RecipeForCamera(const std::string& example, const std::string& camera) {
  kit::Json recipe = kit::Json::parse(kit::ReadFile(example));
  recipe.erase("mm_per_pixel");
  kit::Json& steps = recipe["steps"];
  for (kit::Json& step : steps) step["input"] = "flat";
  const kit::Json flat = {
      {"name", "flat"}, {"operation", "rectify"}, {"input", "image"}, {"parameters", camera}};
  steps.insert(steps.begin(), flat);
  return recipe.dump();
}

bool AddErrors(const kit::recipe::Recipe& recipe, const kit::recipe::Inspector& inspector,
               int brackets, BracketErrors& errors) {
  const auto found = [&](const char* name) -> const std::vector<kit::Thing>& {
    for (const kit::recipe::Step& step : recipe.steps) {
      if (step.name == name) return inspector.Of(step.output).things;
    }
    throw kit::Failure(std::string("no step ") + name);
  };
  const double mm = inspector.Details(0)[0].value;
  const auto &upper = found("upper"), &lower = found("lower");
  const auto &upright = found("upright"), &foot = found("foot");
  const auto count = static_cast<size_t>(brackets);
  if (found("brackets").size() != count) return false;
  for (size_t i = 0; i < count; ++i) {
    for (const auto* things : {&upper, &lower, &upright, &foot}) {
      if (!kit::IsThere(things->at(i))) return false;
    }
    errors.diameters.push_back(upper[i].diameter * mm - kDiameter);
    errors.diameters.push_back(lower[i].diameter * mm - kDiameter);
    errors.distances.push_back(std::hypot(upper[i].x - lower[i].x, upper[i].y - lower[i].y) * mm -
                               kDistance);
    const double turned = std::remainder(upright[i].angle - foot[i].angle - 90, 180);
    errors.angles.push_back(turned * std::numbers::pi / 180 * kLeg);
  }
  return true;
}

}  // namespace quillon::test
