// Pictures with drawings, and their form as an image file. The page's form is in report.cpp.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/images/pixels.h"
#include "kit/report/report.h"

namespace quillon::kit {

namespace {

template <class Image>
std::shared_ptr<const Image> Copied(const Image& image) {
  auto copy = std::make_shared<Image>();
  copy->CopyFrom(&image);
  if (image.bits) RequirePixels(*copy);
  return copy;
}

template <class Image>
std::shared_ptr<const Image> Lent(const Image* image) {
  return {std::shared_ptr<void>(), image};
}

}  // namespace

Picture::Picture(std::string caption, const GreyImage& image) try
    : caption_(std::move(caption)),
      width_(image.width),
      height_(image.height),
      grey_(Copied(image)) {
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

Picture::Picture(std::string caption, const ColourImage& image) try
    : caption_(std::move(caption)),
      width_(image.width),
      height_(image.height),
      colour_(Copied(image)) {
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

Picture::Picture(std::string caption, const GreyImage* image) try
    : caption_(std::move(caption)),
      width_(image->width),
      height_(image->height),
      grey_(Lent(image)) {
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

Picture::Picture(std::string caption, const ColourImage* image) try
    : caption_(std::move(caption)),
      width_(image->width),
      height_(image->height),
      colour_(Lent(image)) {
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

Picture Picture::Again(std::string caption) const try {
  Picture again = *this;
  again.caption_ = std::move(caption);
  again.drawings_.clear();
  again.ground_ = -1;
  again.fault_.clear();
  return again;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

void Picture::TakeDrawings(const Picture& from, std::span<const int> layers, int end) try {
  for (const Drawing& drawing : from.drawings_) {
    if (drawing.mark.row >= end) continue;
    drawings_.push_back(drawing);
    int& layer = drawings_.back().mark.layer;
    layer = layers[static_cast<size_t>(layer)];
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

bool Picture::HasPixelsOf(const Picture& other) const {
  return grey_ == other.grey_ && colour_ == other.colour_;
}

bool Picture::HasAtMost(int count) const {
  if (!grey_) return false;
  bool isThere[256] = {};
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      bool& there = isThere[grey_->rows[y][x]];
      count -= !there;
      there = true;
    }
    if (count < 0) return false;
  }
  return true;
}

std::vector<unsigned char> Picture::Png() const try {
  return grey_ ? EncodePng(*grey_) : EncodePng(*colour_);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

void Picture::CopyTo(ColourImage& image) const try {
  if (colour_) {
    image.CopyFrom(colour_.get());
  } else {
    image.Create(width_, height_);
  }
  RequirePixels(image);
  if (colour_) return;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < width_; ++x) {
      std::fill_n(image.rows[y] + 3 * x, 3, grey_->rows[y][x]);
    }
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Box(Mark mark, double left, double top, double right, double bottom) try {
  drawings_.push_back(
      {mark, Drawing::Kind::kBox, {{left - 0.5, top - 0.5}, {right + 0.5, bottom + 0.5}}});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Polygon(Mark mark, std::span<const Point> points) try {
  drawings_.push_back({mark, Drawing::Kind::kPolygon, {points.begin(), points.end()}});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Dots(Mark mark, std::span<const Point> points) try {
  drawings_.push_back({mark, Drawing::Kind::kDots, {points.begin(), points.end()}});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Cross(Mark mark, Point centre) try {
  drawings_.push_back({mark, Drawing::Kind::kCross, {centre}});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Arrow(Mark mark, Point from, Point tip) try {
  const double dx = tip.x - from.x, dy = tip.y - from.y;
  const Point outline[] = {from, tip, {tip.x - (dx - dy) / 5, tip.y - (dx + dy) / 5}, tip};
  Polygon(mark, outline);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Label(Mark mark, Point at, std::string_view text) try {
  drawings_.push_back({mark, Drawing::Kind::kLabel, {at}, std::string(text)});
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

void Picture::Score(Mark mark, Point corner, double score) try {
  char text[16];
  std::snprintf(text, sizeof text, "%.2f", score);
  Label(mark, {std::clamp(corner.x, 0.0, width_ * 0.95), corner.y}, text);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the drawings of a page");
}

namespace {

struct Colour {
  unsigned char red, green, blue;
};
constexpr Colour kBlack = {0, 0, 0};

// The colours that pages have, too.
Colour ColourOf(Tone tone) {
  switch (tone) {
    case Tone::kCyan:
      return {0x22, 0xd3, 0xee};
    case Tone::kAmber:
      return {0xfb, 0xbf, 0x24};
    case Tone::kMagenta:
      return {0xf4, 0x72, 0xd0};
    case Tone::kGreen:
      return {0x4a, 0xde, 0x80};
    case Tone::kRed:
      return {0xfb, 0x5d, 0x5d};
    case Tone::kWhite:
      return {0xff, 0xff, 0xff};
  }
  return kBlack;
}

// The characters of numbers, three columns by five rows, the top left bit first.
constexpr char kGlyphNames[] = "0123456789.-";
constexpr int kGlyphWidth = 3, kGlyphHeight = 5;
constexpr unsigned kGlyphs[] = {
    0b111101101101111, 0b010110010010111, 0b111001111100111, 0b111001111001111,
    0b101101111001001, 0b111100111001111, 0b111100111101111, 0b111001001001001,
    0b111101111101111, 0b111101111001111, 0b000000000000010, 0b000000111000000,
};

class Canvas {
 public:
  explicit Canvas(ColourImage& image)
      : image_(image),
        thickness_(std::max(1, (image.width + image.height) / 1000)),
        glyph_(std::max(2, static_cast<int>(std::lround((image.width + image.height) / 700.0)))) {}

  void Draw(const Drawing& drawing, Colour colour) {
    const std::vector<Point>& p = drawing.points;
    switch (drawing.kind) {
      case Drawing::Kind::kBox: {
        // Over the pixels just outside the box.
        const double left = std::floor(p[0].x), top = std::floor(p[0].y);
        const double right = std::ceil(p[1].x), bottom = std::ceil(p[1].y);
        const Point corners[] = {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
        Outline(corners, colour);
        break;
      }
      case Drawing::Kind::kPolygon:
        Outline(p, colour);
        break;
      case Drawing::Kind::kDots:
        for (const Point& point : p) Dot(point.x, point.y, colour);
        break;
      case Drawing::Kind::kCross: {
        const double arm = 3.0 * thickness_;
        Line({p[0].x - arm, p[0].y}, {p[0].x + arm, p[0].y}, colour);
        Line({p[0].x, p[0].y - arm}, {p[0].x, p[0].y + arm}, colour);
        break;
      }
      case Drawing::Kind::kLabel:
        Write(drawing.text, p[0], colour);
        break;
    }
  }

 private:
  void Set(int64_t x, int64_t y, Colour colour) {
    if (x < 0 || y < 0 || x >= image_.width || y >= image_.height) return;
    unsigned char* pixel = image_.rows[y] + 3 * x;
    pixel[0] = colour.blue, pixel[1] = colour.green, pixel[2] = colour.red;
  }

  void Dot(double x, double y, Colour colour) {
    const int64_t left = std::llround(x), top = std::llround(y);
    for (int dy = 0; dy < thickness_; ++dy) {
      for (int dx = 0; dx < thickness_; ++dx) Set(left + dx, top + dy, colour);
    }
  }

  void Line(Point from, Point to, Colour colour) {
    const double length = std::max(std::abs(to.x - from.x), std::abs(to.y - from.y));
    constexpr double kLongest =
        1e6;  // lines beyond any picture, or to what is not a number, are not drawn
    if (!(length < kLongest)) return;
    const int steps = std::max(1, static_cast<int>(std::ceil(length)));
    for (int i = 0; i <= steps; ++i) {
      const double t = static_cast<double>(i) / steps;
      Dot(from.x + t * (to.x - from.x), from.y + t * (to.y - from.y), colour);
    }
  }

  void Outline(std::span<const Point> points, Colour colour) {
    for (size_t i = 0; i < points.size(); ++i) {
      Line(points[i], points[(i + 1) % points.size()], colour);
    }
  }

  // Black all around first, then the digits over it. Only characters of numbers are drawn.
  void Write(std::string_view text, Point at, Colour colour) {
    const int64_t height = kGlyphHeight * glyph_, x = std::llround(at.x);
    const int64_t y = std::max<int64_t>(1, std::llround(at.y) - height);
    for (const int border : {1, 0}) {
      for (size_t i = 0; i < text.size(); ++i) {
        const auto* name = std::find(std::begin(kGlyphNames), std::end(kGlyphNames) - 1, text[i]);
        if (name == std::end(kGlyphNames) - 1) continue;
        const int64_t left = x + static_cast<int64_t>(i) * (kGlyphWidth + 1) * glyph_;
        Glyph(kGlyphs[name - kGlyphNames], left, y, border, border ? kBlack : colour);
      }
    }
  }

  void Glyph(unsigned bits, int64_t left, int64_t top, int border, Colour colour) {
    for (int cell = 0; cell < kGlyphWidth * kGlyphHeight; ++cell) {
      if (!(bits >> (kGlyphWidth * kGlyphHeight - 1 - cell) & 1)) continue;
      const int64_t x = left + cell % kGlyphWidth * glyph_, y = top + cell / kGlyphWidth * glyph_;
      for (int64_t dy = -border; dy < glyph_ + border; ++dy) {
        for (int64_t dx = -border; dx < glyph_ + border; ++dx) Set(x + dx, y + dy, colour);
      }
    }
  }

  ColourImage& image_;
  int thickness_;
  int glyph_;  // pixels of a glyph's cell
};

}  // namespace

void WriteDrawnPicture(const std::string& path, const Report& report) try {
  WithinMemory("picture '" + path + "'", [&] {
    ColourImage image;
    report.pictures.back().CopyTo(image);
    Canvas canvas(image);
    for (size_t layer = 0; layer < report.layers.size(); ++layer) {
      if (!report.layers[layer].shown) continue;
      for (const Drawing& drawing : report.pictures.back().Drawings()) {
        if (drawing.mark.layer != static_cast<int>(layer)) continue;
        canvas.Draw(drawing, ColourOf(report.layers[layer].tone));
      }
    }
    WriteImage(path, image);
  });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the picture of a page");
}

}  // namespace quillon::kit
