#include "kit/calibration/camera.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "kit/calibration/dots.h"
#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/measure/least_squares.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

using Vector = std::array<double, 3>;
using Matrix = std::array<double, 9>;  // rows

Vector Times(const Matrix& m, const Vector& v) {
  Vector product;
  for (size_t i = 0; i < 3; ++i) {
    product[i] = m[3 * i] * v[0] + m[3 * i + 1] * v[1] + m[3 * i + 2] * v[2];
  }
  return product;
}

Matrix Times(const Matrix& a, const Matrix& b) {
  Matrix product = {};
  for (size_t i = 0; i < 9; ++i) {
    for (size_t k = 0; k < 3; ++k) product[i] += a[i / 3 * 3 + k] * b[3 * k + i % 3];
  }
  return product;
}

// Rodrigues' formula: a turn about the vector by its length. Sine and cosine come from their
// series, not from the C library, whose last digits differ from one system to the next: what is
// measured by a camera file has the same digits on all of them.
Matrix Turn(const Vector& r) {
  const double square =
      r[0] * r[0] + r[1] * r[1] + r[2] * r[2];  // of the angle, which is at most pi
  double sine = 1, rest = 1;  // sin(angle) / angle, and 2 (1 - cos(angle)) / angle^2
  for (int k = 16; k > 0; --k) {
    sine = 1 - sine * square / (2 * k * (2 * k + 1));
    rest = 1 - rest * square / ((2 * k + 1) * (2 * k + 2));
  }
  rest /= 2;
  const double c = 1 - rest * square;
  return {c + rest * r[0] * r[0],
          rest * r[0] * r[1] - sine * r[2],
          rest * r[0] * r[2] + sine * r[1],
          rest * r[0] * r[1] + sine * r[2],
          c + rest * r[1] * r[1],
          rest * r[1] * r[2] - sine * r[0],
          rest * r[0] * r[2] - sine * r[1],
          rest * r[1] * r[2] + sine * r[0],
          c + rest * r[2] * r[2]};
}

// The rotation vector of a matrix that is a rotation but for rounding.
Vector TurnVector(const Matrix& m) {
  const Vector axis = {m[7] - m[5], m[2] - m[6], m[3] - m[1]};
  const double sine = Length(axis[0], axis[1], axis[2]) / 2;
  const double angle = ArcTangent(sine, (m[0] + m[4] + m[8] - 1) / 2);
  if (sine < 1e-9) return {0, 0, 0};  // boards are not seen from behind
  const double scale = angle / (2 * sine);
  return {axis[0] * scale, axis[1] * scale, axis[2] * scale};
}

// ---- homographies -------------------------------------------------------------------------------

// Moves points to their middle and to about unit size.
struct Scaling {
  double x = 0, y = 0, scale = 1;

  explicit Scaling(const std::vector<Point>& points) {
    const auto count = static_cast<double>(points.size());
    for (const Point& at : points) x += at.x / count, y += at.y / count;
    double reach = 0;
    for (const Point& at : points) reach += Length(at.x - x, at.y - y) / count;
    if (reach > 0) scale = 1 / reach;
  }
  Point Of(Point at) const { return {(at.x - x) * scale, (at.y - y) * scale}; }
  Matrix Forth() const { return {scale, 0, -scale * x, 0, scale, -scale * y, 0, 0, 1}; }
  Matrix Back() const { return {1 / scale, 0, x, 0, 1 / scale, y, 0, 0, 1}; }
};

// From columns and rows of the board to places in the picture; false where points lie in a line.
bool FitHomography(const std::vector<BoardPoint>& points, Matrix& homography) {
  std::vector<Point> places, seen;
  for (const BoardPoint& point : points) {
    places.push_back({double(point.column), double(point.row)});
    seen.push_back(point.at);
  }
  const Scaling from(places), to(seen);
  std::vector<double> a(64), b(8);
  for (size_t n = 0; n < points.size(); ++n) {
    const Point p = from.Of(places[n]), q = to.Of(seen[n]);
    const double rows[2][8] = {{p.x, p.y, 1, 0, 0, 0, -p.x * q.x, -p.y * q.x},
                               {0, 0, 0, p.x, p.y, 1, -p.x * q.y, -p.y * q.y}};
    const double values[2] = {q.x, q.y};
    for (size_t r = 0; r < 2; ++r) {
      for (size_t i = 0; i < 8; ++i) {
        b[i] += rows[r][i] * values[r];
        for (size_t k = 0; k < 8; ++k) a[8 * i + k] += rows[r][i] * rows[r][k];
      }
    }
  }
  if (!SolveSymmetric(a, b)) return false;
  const Matrix scaled = {b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], 1};
  homography = Times(Times(to.Back(), scaled), from.Forth());
  return true;
}

// ---- the start ----------------------------------------------------------------------------------

// With the centre in the middle of the picture, the columns of each homography, seen by the camera,
// are as long as each other and at right angles: two equations each for 1 / fx^2 and 1 / fy^2. One
// focal length serves for both as a start.
double StartFocalLength(const std::vector<Matrix>& homographies, PictureSize size) {
  const double cx = (size.width - 1) / 2.0, cy = (size.height - 1) / 2.0;
  double above = 0, below = 0;
  for (const Matrix& h : homographies) {
    const Matrix m = Times(Matrix{1, 0, -cx, 0, 1, -cy, 0, 0, 1}, h);
    const double length = Length(m[6], m[7], m[8]);
    const Vector u = {m[0] / length, m[3] / length, m[6] / length};
    const Vector v = {m[1] / length, m[4] / length, m[7] / length};
    const double right[2] = {u[0] * v[0] + u[1] * v[1],
                             u[0] * u[0] + u[1] * u[1] - v[0] * v[0] - v[1] * v[1]};
    const double depth[2] = {u[2] * v[2], u[2] * u[2] - v[2] * v[2]};
    for (size_t i = 0; i < 2; ++i) {
      above += right[i] * right[i];
      below -= right[i] * depth[i];
    }
  }
  // A board that is seen straight on looks the same at every focal length and adds next to nothing
  // here: so what comes out is held near the usual length.
  const double usual = 1.2 * std::max(size.width, size.height);
  const double square = above / below;
  if (!(square > 0)) return usual;
  return std::clamp(std::sqrt(square), usual / 5, usual * 20);
}

BoardPlace StartPlace(const Matrix& h, const Lens& lens) {
  const Matrix m = Times(
      Matrix{1 / lens.fx, 0, -lens.cx / lens.fx, 0, 1 / lens.fy, -lens.cy / lens.fy, 0, 0, 1}, h);
  const double length = (Length(m[0], m[3], m[6]) + Length(m[1], m[4], m[7])) / (m[8] < 0 ? -2 : 2);
  Vector u = {m[0] / length, m[3] / length, m[6] / length};
  Vector v = {m[1] / length, m[4] / length, m[7] / length};
  // Two unit vectors at right angles, as near to both as can be.
  const Vector sum = {u[0] + v[0], u[1] + v[1], u[2] + v[2]};
  const Vector difference = {u[0] - v[0], u[1] - v[1], u[2] - v[2]};
  const double s = Length(sum[0], sum[1], sum[2]) * std::sqrt(2.0);
  const double d = Length(difference[0], difference[1], difference[2]) * std::sqrt(2.0);
  for (size_t i = 0; i < 3; ++i) {
    u[i] = sum[i] / s + difference[i] / d;
    v[i] = sum[i] / s - difference[i] / d;
  }
  const Vector w = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                    u[0] * v[1] - u[1] * v[0]};
  return {TurnVector({u[0], v[0], w[0], u[1], v[1], w[1], u[2], v[2], w[2]}),
          {m[2] / length, m[5] / length, m[8] / length}};
}

// ---- all parameters together --------------------------------------------------------------------

constexpr size_t kOfView = 6;

// The parameters of the lens in one list, either all or those that few views can tell.
struct LensParameters {
  bool all;
  Lens start;

  size_t Count() const { return all ? 9 : 3; }
  std::vector<double> From(const Lens& lens) const {
    const auto& k = lens.bend;
    if (!all) return {lens.fx, k[0], k[1]};
    return {lens.fx, lens.fy, lens.cx, lens.cy, k[0], k[1], k[2], k[3], k[4]};
  }
  Lens To(std::span<const double> p) const {
    if (!all) return {p[0], p[0], start.cx, start.cy, {p[1], p[2], 0, 0, 0}};
    return {p[0], p[1], p[2], p[3], {p[4], p[5], p[6], p[7], p[8]}};
  }
};

BoardPlace PlaceFrom(std::span<const double> p) { return {{p[0], p[1], p[2]}, {p[3], p[4], p[5]}}; }

// The distances of one view's points from where the lens and the board's place put them.
void AddResiduals(const BoardView& view, const Lens& lens, const BoardPlace& place,
                  std::span<double> out) {
  const Matrix turn = Turn(place.rotation);
  for (size_t i = 0; i < view.points.size(); ++i) {
    const BoardPoint& point = view.points[i];
    Vector seen = Times(turn, Vector{double(point.column), double(point.row), 0});
    for (size_t k = 0; k < 3; ++k) seen[k] += place.shift[k];
    const Point at = lens.Project(seen[0] / seen[2], seen[1] / seen[2]);
    out[2 * i] = at.x - point.at.x;
    out[2 * i + 1] = at.y - point.at.y;
  }
}

void FitAll(const std::vector<BoardView>& views, const LensParameters& form, Lens& lens,
            std::vector<BoardPlace>& places) {
  std::vector<double> p = form.From(lens);
  size_t count = 0;
  for (size_t i = 0; i < views.size(); ++i) {
    p.insert(p.end(), places[i].rotation.begin(), places[i].rotation.end());
    p.insert(p.end(), places[i].shift.begin(), places[i].shift.end());
    count += 2 * views[i].points.size();
  }
  const auto residuals = [&](std::span<const double> q, std::span<double> out) {
    const Lens tried = form.To(q);
    size_t begin = 0;
    for (size_t i = 0; i < views.size(); ++i) {
      const size_t size = 2 * views[i].points.size();
      AddResiduals(views[i], tried, PlaceFrom(q.subspan(form.Count() + kOfView * i)),
                   out.subspan(begin, size));
      begin += size;
    }
  };
  Minimise(residuals, count, 1e-6, p, 100);
  lens = form.To(p);
  for (size_t i = 0; i < views.size(); ++i) {
    places[i] = PlaceFrom(std::span(p).subspan(form.Count() + kOfView * i));
  }
}

FittedView Judged(const BoardView& view, const Lens& lens, const BoardPlace& place) {
  FittedView fitted;
  fitted.place = place;
  std::vector<double> residuals(2 * view.points.size());
  AddResiduals(view, lens, place, residuals);
  double sum = 0;
  for (size_t i = 0; i < view.points.size(); ++i) {
    const double dx = residuals[2 * i], dy = residuals[2 * i + 1], size = Length(dx, dy);
    fitted.fitted.push_back({view.points[i].at.x + dx, view.points[i].at.y + dy});
    sum += size * size;
    if (size > fitted.worst) fitted.worst = size, fitted.worstPoint = i;
  }
  fitted.rms = std::sqrt(sum / static_cast<double>(view.points.size()));
  return fitted;
}

}  // namespace

Point Lens::Project(double x, double y) const {
  const double s = x * x + y * y;
  const auto& [k1, k2, p1, p2, k3] = bend;
  const double radial = 1 + s * (k1 + s * (k2 + s * k3));
  return {fx * (radial * x + 2 * p1 * x * y + p2 * (s + 2 * x * x)) + cx,
          fy * (radial * y + p1 * (s + 2 * y * y) + 2 * p2 * x * y) + cy};
}

Point BoardPlace::Seen(double column, double row) const {
  const Vector at = Times(Turn(rotation), Vector{column, row, 0});
  const double depth = at[2] + shift[2];
  return {(at[0] + shift[0]) / depth, (at[1] + shift[1]) / depth};
}

namespace {

BoardView ViewOf(const std::string& name, std::vector<BoardPoint> points, BoardSize board,
                 const std::string& what, const std::string& counted) {
  // 4 would tell how the board lies; more tell of the lens too.
  constexpr size_t kFewestPoints = 12;
  if (points.size() >= kFewestPoints) return {name, std::move(points)};
  const bool isAny = board.columns == kAnyBoard.columns && board.rows == kAnyBoard.rows;
  const std::string size = std::to_string(board.columns) + " x " + std::to_string(board.rows);
  throw Failure("'" + name + "' shows " + std::to_string(points.size()) + " " + what +
                " of a board" + (isAny ? "" : " with " + size + " " + counted) + "; at least " +
                std::to_string(kFewestPoints) + " are needed");
}

}  // namespace

BoardView ViewOfChessboard(const std::string& name, const GreyImage& image, BoardSize board) try {
  return ViewOf(name, FindChessboard(image, board), board, "corners", "inner corners");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the corners of a board");
}

BoardView ViewOfDots(const std::string& name, const GreyImage& image, BoardSize board) try {
  return ViewOf(name, FindDots(image, board), board, "dots", "dots");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the dots of a board");
}

void RequireResidualsWithin(double maxRms, const Camera& camera,
                            const std::vector<BoardView>& views) try {
  if (camera.rms <= maxRms) return;
  size_t worst = 0;
  for (size_t i = 1; i < views.size(); ++i) {
    if (camera.views[i].rms > camera.views[worst].rms) worst = i;
  }
  throw Failure("the corners lie " + ShortestDigits(camera.rms) +
                " pixels (RMS) from where the fit has " + "them, beyond the limit of " +
                ShortestDigits(maxRms) + "; the worst picture is '" + views[worst].name +
                "' with " + ShortestDigits(camera.views[worst].rms));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the residuals of a camera");
}

Camera FitCamera(const std::vector<BoardView>& views, PictureSize size) try {
  std::vector<Matrix> homographies(views.size());
  for (size_t i = 0; i < views.size(); ++i) {
    if (!FitHomography(views[i].points, homographies[i])) {
      throw Failure("the points of '" + views[i].name + "' do not lie like a flat board's");
    }
  }
  Camera camera;
  camera.size = size;
  const double focal = StartFocalLength(homographies, size);
  Lens& lens = camera.lens;
  lens = {focal, focal, (size.width - 1) / 2.0, (size.height - 1) / 2.0};
  std::vector<BoardPlace> places;
  places.reserve(views.size());
  for (const Matrix& homography : homographies) places.push_back(StartPlace(homography, lens));
  // First the few parameters that a poor start cannot lead astray, then all of them from there.
  FitAll(views, {false, lens}, lens, places);
  if (views.size() >= kViewsForAll) FitAll(views, {true, lens}, lens, places);
  double sum = 0;
  size_t count = 0;
  for (size_t i = 0; i < views.size(); ++i) {
    const FittedView& view = camera.views.emplace_back(Judged(views[i], lens, places[i]));
    const auto points = views[i].points.size();
    sum += view.rms * view.rms * static_cast<double>(points);
    count += points;
    camera.worst = std::max(camera.worst, view.worst);
  }
  camera.rms = std::sqrt(sum / static_cast<double>(count));
  camera.plane = camera.views[0].place;
  return camera;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fit of a camera");
}

namespace {

// Where a place of the plane, in squares, is seen.
Point SeenAt(const Camera& camera, double column, double row) {
  const Point seen = camera.plane.Seen(column, row);
  return camera.lens.Project(seen.x, seen.y);
}

// The place of the plane, in squares, that is seen nearest to a place of the picture.
struct PlanePlace {
  Point at;
  double distance;  // from where it is seen to where it should be, pixels
};

PlanePlace NearestInPlane(const Camera& camera, Point wanted) {
  const auto distance = [&](std::span<const double> p, std::span<double> out) {
    const Point seen = SeenAt(camera, p[0], p[1]);
    out[0] = seen.x - wanted.x;
    out[1] = seen.y - wanted.y;
  };
  std::vector<double> place = {0, 0};
  const double left = Minimise(distance, 2, 1e-6, place, 100);
  return {{place[0], place[1]}, std::sqrt(left)};
}

// Where the middle of the picture looks at the plane, in squares, and what a step to the right in
// the picture is there.
struct PlaneAxes {
  Point middle, right;  // `right` is one pixel in the picture's middle
};

PlaneAxes AxesOf(const Camera& camera) {
  const Point centre = {(camera.size.width - 1) / 2.0, (camera.size.height - 1) / 2.0};
  const Point middle = NearestInPlane(camera, centre).at;
  constexpr double kStep = 1e-4;
  double columns[2], rows[2];  // pixels for a square along the board's columns, and along its rows
  for (size_t i = 0; i < 2; ++i) {
    const double x = i == 0 ? kStep : 0, y = i == 0 ? 0 : kStep;
    const Point ahead = SeenAt(camera, middle.x + x, middle.y + y);
    const Point behind = SeenAt(camera, middle.x - x, middle.y - y);
    columns[i] = (ahead.x - behind.x) / (2 * kStep);
    rows[i] = (ahead.y - behind.y) / (2 * kStep);
  }
  // One pixel covers as much of the plane as it does in the middle of the picture, on the mean of
  // both directions.
  const double determinant = columns[0] * rows[1] - columns[1] * rows[0];
  const Point right = {rows[1] / determinant, -rows[0] / determinant};
  const double length = Length(right), step = 1 / std::sqrt(std::abs(determinant));
  return {middle, {right.x / length * step, right.y / length * step}};
}

constexpr const char* kKind = "camera";

}  // namespace

double UnitPerPixel(const Camera& camera) {
  const Point right = AxesOf(camera).right;
  return Length(right) * camera.square;
}

Point PlaceInPlane(const Camera& camera, Point seen) try {
  constexpr double kNear = 1e-3;  // pixels
  const PlanePlace place = NearestInPlane(camera, seen);
  if (!(place.distance < kNear)) {
    throw Failure("the plane is not seen at (" + ShortestDigits(seen.x) + ", " +
                  ShortestDigits(seen.y) + ")");
  }
  return place.at;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a place in the plane");
}

std::string CameraText(const Camera& camera, const std::vector<BoardView>& boards) try {
  const Lens& lens = camera.lens;
  Json views = Json::array();
  for (size_t i = 0; i < boards.size(); ++i) {
    Json corners = Json::array();
    for (const BoardPoint& point : boards[i].points) {
      corners.push_back({point.column, point.row, point.at.x, point.at.y});
    }
    const FittedView& view = camera.views[i];
    views.push_back({{"rms", view.rms},
                     {"worst", view.worst},
                     {"rotation", view.place.rotation},
                     {"shift", view.place.shift},
                     {"corners", std::move(corners)}});
  }
  const Json file = {
      {"kind", kKind},
      {"width", camera.size.width},
      {"height", camera.size.height},
      {"focal_length", {lens.fx, lens.fy}},
      {"centre", {lens.cx, lens.cy}},
      {"bend", lens.bend},
      {"square", camera.square},
      {"unit", camera.unit},
      {"plane", {{"rotation", camera.plane.rotation}, {"shift", camera.plane.shift}}},
      {"unit_per_pixel", UnitPerPixel(camera)},
      {"rms", camera.rms},
      {"worst", camera.worst},
      {"views", views}};
  return file.dump(2) + "\n";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the text of a camera");
}

Camera ReadCamera(const std::string& path) try {
  return ParseCamera(path, ReadFile(path));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the file of a camera");
}

Camera ParseCamera(const std::string& path, const std::string& text) try {
  const Json file = Json::parse(text, nullptr, false);
  const auto refuse = [&](const std::string& why) -> void {
    throw Failure("'" + path + "' is no camera file: " + why);
  };
  if (!Says(file, "kind", kKind)) {
    refuse("it does not say that its kind is camera");
  }
  // `count` numbers of a field of an object.
  const auto numbers = [&](const Json& object, const char* name, size_t count) {
    const Json list = object.is_object() ? object.value(name, Json()) : Json();
    const auto isNumber = [](const Json& value) { return value.is_number(); };
    if (!list.is_array() || list.size() != count ||
        !std::all_of(list.begin(), list.end(), isNumber)) {
      refuse("'" + std::string(name) + "' is not a list of " + std::to_string(count) + " numbers");
    }
    return list.get<std::vector<double>>();
  };
  const auto number = [&](const char* name, double least, double most) {
    const Json value = file.value(name, Json());
    if (!value.is_number() || !(value.get<double>() >= least && value.get<double>() <= most)) {
      refuse("'" + std::string(name) + "' is not a number from " + std::to_string(least) + " to " +
             std::to_string(most));
    }
    return value.get<double>();
  };
  constexpr double kMostPixels = 32767, kLargest = 1e6;
  Camera camera;
  camera.size = {static_cast<int>(number("width", 1, kMostPixels)),
                 static_cast<int>(number("height", 1, kMostPixels))};
  const auto focal = numbers(file, "focal_length", 2), centre = numbers(file, "centre", 2);
  camera.lens = {focal[0], focal[1], centre[0], centre[1]};
  const auto bend = numbers(file, "bend", camera.lens.bend.size());
  std::copy(bend.begin(), bend.end(), camera.lens.bend.begin());
  camera.square = number("square", 1e-6, kLargest);
  camera.unit = Says(file, "unit", "mm") ? "mm" : "";
  if (camera.unit.empty()) refuse("its unit is not mm");
  const Json plane = file.value("plane", Json());
  const auto rotation = numbers(plane, "rotation", 3), shift = numbers(plane, "shift", 3);
  std::copy(rotation.begin(), rotation.end(), camera.plane.rotation.begin());
  std::copy(shift.begin(), shift.end(), camera.plane.shift.begin());
  const double step = UnitPerPixel(camera);
  if (!(focal[0] > 0 && focal[1] > 0 && step > 0 && step < kLargest)) {
    refuse("its numbers are those of no camera");
  }
  return camera;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the file of a camera");
}

RectifiedPlaces::RectifiedPlaces(const Camera& camera) try : camera_(camera) {
  const PlaneAxes axes = AxesOf(camera);
  middle_ = axes.middle;
  right_ = axes.right;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("rectified places");
}

Point RectifiedPlaces::SeenAt(double x, double y) const {
  const double dx = x - (camera_.size.width - 1) / 2.0, dy = y - (camera_.size.height - 1) / 2.0;
  return quillon::kit::SeenAt(camera_, middle_.x + dx * right_.x - dy * right_.y,
                              middle_.y + dx * right_.y + dy * right_.x);
}

}  // namespace quillon::kit
