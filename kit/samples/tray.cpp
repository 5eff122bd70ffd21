// Parts are signed distance functions: negative inside, in pixels. From the distance come the
// pixels covered, the softened outline, the shadow (the distance somewhat towards the light) and,
// through its gradient, the bevel's shading.
#include "kit/samples/tray.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "kit/errors.h"
#include "kit/geometry.h"

namespace quillon::kit {
namespace {

// ---- shapes, about their middle -----------------------------------------------------------------

double Disc(Point p, double radius) { return Length(p) - radius; }

double RoundedBox(Point p, double halfWidth, double halfHeight, double corner) {
  const Point q = {std::abs(p.x) - halfWidth + corner, std::abs(p.y) - halfHeight + corner};
  return Length({std::max(q.x, 0.0), std::max(q.y, 0.0)}) + std::min(std::max(q.x, q.y), 0.0) -
         corner;
}

// The point turned into the sector of `count`-fold symmetry around the x axis.
Point Fold(Point p, int count) {
  const double sector = 2 * std::numbers::pi / count;
  const double angle = std::atan2(p.y, p.x);
  const double folded = angle - sector * std::round(angle / sector);
  return {Length(p) * std::cos(folded), Length(p) * std::sin(folded)};
}

double Without(double shape, double hole) { return std::max(shape, -hole); }

double Washer(Point p) { return Without(Disc(p, 46), Disc(p, 23)); }
double Nut(Point p) { return Without(Fold(p, 6).x - 38, Disc(p, 21)); }
double Token(Point p) { return Disc(p, 34); }
double Pin(Point p) { return RoundedBox(p, 62, 11, 11); }

double Gear(Point p) {
  const Point tooth = Fold(p, 12);
  const double teeth = RoundedBox({tooth.x - 52, tooth.y}, 10, 7, 2.5);
  return Without(std::min(Disc(p, 50), teeth), Disc(p, 16));
}

double Plate(Point p) {
  const double holes = Disc({std::abs(p.x) - 36, p.y}, 11);
  return Without(RoundedBox(p, 62, 28, 9), holes);
}

double Bracket(Point p) {
  const double upright = RoundedBox({p.x + 30, p.y}, 18, 52, 5);
  const double foot = RoundedBox({p.x - 4, p.y - 35}, 52, 17, 5);
  const double holes = std::min(Disc({p.x + 30, p.y + 30}, 8.5), Disc({p.x - 34, p.y - 35}, 8.5));
  return Without(std::min(upright, foot), holes);
}

// The colour of a metal, as red, green and blue for a grey value of 1.
struct Tint {
  double red, green, blue;
};
constexpr Tint Normalised(double red, double green, double blue) {
  const double grey = 0.299 * red + 0.587 * green + 0.114 * blue;
  return {red / grey, green / grey, blue / grey};
}
constexpr Tint kSlate = Normalised(0.80, 0.98, 1.22);
constexpr Tint kSteel = Normalised(0.97, 1.00, 1.05);
constexpr Tint kBrass = Normalised(1.13, 0.98, 0.66);
constexpr Tint kCopper = Normalised(1.20, 0.93, 0.78);

struct Kind {
  const char* name;
  double (*distance)(Point p);
  double reach;  // radius of a circle that holds it
  int count;     // on a tray
  Tint tint;
  double brightness;
};
constexpr Kind kKinds[] = {
    {"gear", Gear, 63, 3, kBrass, 172},       {"plate", Plate, 69, 3, kSteel, 184},
    {"bracket", Bracket, 72, 4, kSteel, 190}, {"pin", Pin, 63, 4, kSteel, 200},
    {"washer", Washer, 47, 5, kSteel, 188},   {"nut", Nut, 45, 5, kBrass, 176},
    {"token", Token, 35, 4, kCopper, 170},
};
const Kind& kBracketKind = kKinds[2];

struct Placed {
  const Kind* kind;
  Point centre;
  double degrees, cosine, sine;

  Placed(const Kind& placed, Point at, double turned)
      : kind(&placed),
        centre(at),
        degrees(turned),
        cosine(std::cos(turned * std::numbers::pi / 180)),
        sine(std::sin(turned * std::numbers::pi / 180)) {}

  // The point of the picture as the part's own drawing has it.
  Point Local(Point p) const {
    const Point d = {p.x - centre.x, p.y - centre.y};
    return {d.x * cosine + d.y * sine, d.y * cosine - d.x * sine};
  }
  double Distance(Point p) const { return kind->distance(Local(p)); }
};

// ---- chance -------------------------------------------------------------------------------------

class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1) {}
  // A number of [low, high).
  double Within(double low, double high) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return low + (high - low) * (state_ / 4294967296.0);
  }

 private:
  uint32_t state_;
};

// A number of [-1, 1) that belongs to the point.
double Grain(int x, int y) {
  uint32_t h = static_cast<uint32_t>(x) * 0x9E3779B1u ^ static_cast<uint32_t>(y) * 0x85EBCA77u;
  h = (h ^ h >> 15) * 0x2C1B3C6Du;
  h = (h ^ h >> 12) * 0x297A2D39u;
  return (h ^ h >> 15) / 2147483648.0 - 1;
}

// ---- light --------------------------------------------------------------------------------------

double Clamp01(double v) { return std::clamp(v, 0.0, 1.0); }
double Smooth(double from, double to, double v) {
  const double t = Clamp01((v - from) / (to - from));
  return t * t * (3 - 2 * t);
}

// The light's direction, from the picture towards it, and what it leaves of the ground in shadow.
constexpr double kLightX = -0.50, kLightY = -0.60, kLightZ = 0.625;
constexpr double kShadowLength = 9, kShadowBlur = 7, kShadowDepth = 0.62;
constexpr double kBevel = 5;

// What separates parts from ground for certain, rounding in the conversion to grey included.
constexpr double kDarkestPart = kPartLevel + 18, kBrightestGround = kPartLevel - 22;

double AsPart(double grey) { return std::clamp(grey, kDarkestPart, 236.0); }
double AsGround(double grey) { return std::clamp(grey, 8.0, kBrightestGround); }

// Pixels on the outline show both. Where pixels are those that parts are measured in, such a one is
// told from the ground, or from the part, as well as others. Fine pixels keep what they mix:
// outlines would end at whole ones otherwise.
double Mixed(double covered, double metal, double ground) {
  return covered * metal + (1 - covered) * ground;
}

// A picture with `fine` pixels a side for each that parts are measured in.
struct Canvas {
  int width, height, fine;  // without `fine`

  Point Place(int x, int y) const { return {(x + 0.5) / fine - 0.5, (y + 0.5) / fine - 0.5}; }
};

double Ground(Point p, double grain, const Canvas& canvas) {
  const double across = (p.x - 0.30 * canvas.width) / canvas.width;
  const double down = (p.y - 0.25 * canvas.height) / canvas.height;
  const double falloff = 1 - 0.55 * (across * across + down * down);
  // A fine ribbing of the tray, and grain.
  const double ribs = std::sin(p.y * std::numbers::pi / 6);
  return 72 * falloff + 2.2 * ribs + 1.6 * grain;
}

double Metal(const Placed& part, Point p, double distance) {
  constexpr double kStep = 0.5;
  const double gx = part.Distance({p.x + kStep, p.y}) - part.Distance({p.x - kStep, p.y});
  const double gy = part.Distance({p.x, p.y + kStep}) - part.Distance({p.x, p.y - kStep});
  const double slope = 0.85 * (1 - Smooth(0, kBevel, -distance));
  const double length = std::sqrt(1 + slope * slope * (gx * gx + gy * gy));
  const double facing = (slope * (gx * kLightX + gy * kLightY) + kLightZ) / length;
  // Brushed along the part's own x axis.
  const Point local = part.Local(p);
  const double brushed = Grain(static_cast<int>(std::floor(local.x / 24)),
                               static_cast<int>(std::floor(local.y * 1.5)));
  const double glint = std::pow(std::max(0.0, facing), 12) * 26;
  return part.kind->brightness * (0.52 + 0.74 * facing) + glint + 3.5 * brushed +
         1.5 * Grain(static_cast<int>(p.x), static_cast<int>(p.y));
}

unsigned char Byte(double v) { return static_cast<unsigned char>(std::clamp(v + 0.5, 0.0, 255.0)); }

void Tinted(double grey, double share, const Tint& tint, double (&colour)[3]) {
  colour[0] += share * grey * tint.blue;
  colour[1] += share * grey * tint.green;
  colour[2] += share * grey * tint.red;
}

// The ground, darkened where a part stands between it and the light.
double ShadedGround(std::span<const Placed> parts, Point p, double grain, const Canvas& canvas) {
  double shadow = 0;
  for (const Placed& part : parts) {
    const Point towards = {p.x + kShadowLength * kLightX, p.y + kShadowLength * kLightY};
    const Point d = {towards.x - part.centre.x, towards.y - part.centre.y};
    const double near = part.kind->reach + kShadowBlur;
    if (d.x * d.x + d.y * d.y > near * near) continue;
    shadow = std::max(shadow, 1 - Smooth(-kShadowBlur, kShadowBlur, part.Distance(towards)));
  }
  return Ground(p, grain, canvas) * (1 - kShadowDepth * shadow);
}

void Draw(std::span<const Placed> placed, const Canvas& canvas, ColourImage& image,
          std::vector<DrawnPart>& drawn) {
  const int width = canvas.width * canvas.fine, height = canvas.height * canvas.fine;
  image.Create(width, height);
  if (!image.bits) throw OutOfMemory("a sample image");
  drawn.clear();
  for (const Placed& part : placed) {
    drawn.push_back({part.kind->name, 0, 0, 0, part.degrees, width, height, -1, -1});
  }

  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Point p = canvas.Place(x, y);
      size_t nearest = 0;
      double distance = 1e9;
      for (size_t i = 0; i < placed.size(); ++i) {
        const Point d = {p.x - placed[i].centre.x, p.y - placed[i].centre.y};
        const double reach = placed[i].kind->reach + 2;
        if (d.x * d.x + d.y * d.y > reach * reach) continue;
        nearest = i;
        distance = placed[i].Distance(p);
      }

      const bool inside = distance <= 0;
      const double covered = Clamp01(0.5 - distance * canvas.fine);
      const double ground = ShadedGround(placed, p, Grain(x, y), canvas);
      const double metal = covered > 0 ? Metal(placed[nearest], p, distance) : ground;
      const double grey = canvas.fine > 1
                              ? Mixed(covered, AsPart(metal), AsGround(ground))
                              : (inside ? AsPart : AsGround)(Mixed(covered, metal, ground));
      double colour[3] = {};
      Tinted(grey, 1 - covered, kSlate, colour);
      if (covered > 0) Tinted(grey, covered, placed[nearest].kind->tint, colour);
      for (int c = 0; c < 3; ++c) image.rows[y][3 * x + c] = Byte(colour[c]);

      if (!inside) continue;
      DrawnPart& part = drawn[nearest];
      ++part.area;
      part.x += x;
      part.y += y;
      part.left = std::min(part.left, x);
      part.right = std::max(part.right, x);
      part.top = std::min(part.top, y);
      part.bottom = std::max(part.bottom, y);
    }
  }
  for (DrawnPart& part : drawn) {
    part.x /= static_cast<double>(part.area);
    part.y /= static_cast<double>(part.area);
  }
  // Stable, since libraries differ in what they do with parts of the same top row.
  std::stable_sort(drawn.begin(), drawn.end(),
                   [](const DrawnPart& a, const DrawnPart& b) { return a.top < b.top; });
}

// The parts, the largest first, each where chance finds room.
std::vector<Placed> PlaceParts(uint32_t seed, int width, int height) {
  constexpr double kGap = 9, kMargin = 12;
  constexpr int kTries = 4000;
  Random random(seed);
  std::vector<Placed> placed;
  for (const Kind& kind : kKinds) {
    for (int n = 0; n < kind.count; ++n) {
      for (int tries = 0; tries < kTries; ++tries) {
        const double edge = kind.reach + kMargin;
        const Point at = {random.Within(edge, width - edge), random.Within(edge, height - edge)};
        const auto touches = [&](const Placed& other) {
          const double apart = Distance(at, other.centre);
          return apart < kind.reach + other.kind->reach + kGap;
        };
        if (std::any_of(placed.begin(), placed.end(), touches)) continue;
        placed.emplace_back(kind, at, random.Within(-180, 180));
        break;
      }
    }
  }
  return placed;
}

}  // namespace

void DrawTray(uint32_t seed, int width, int height, ColourImage& image,
              std::vector<DrawnPart>& parts, int fine) try {
  Draw(PlaceParts(seed, width, height), {width, height, fine}, image, parts);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn tray");
}

void DrawBracket(ColourImage& image) try {
  constexpr int kSide = 150;
  const Placed bracket(kBracketKind, {(kSide - 1) / 2.0, (kSide - 1) / 2.0}, 0);
  std::vector<DrawnPart> part;
  Draw({&bracket, 1}, {kSide, kSide, 1}, image, part);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a drawn tray");
}

}  // namespace quillon::kit
