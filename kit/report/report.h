// A report: one self-contained page of pictures, drawings over them, and the table of what was
// found. It needs no network and no other file, works on a phone and prints.
//
//   Report report{.title = "Blobs of tray.png"};
//   report.layers = {{"Outline box", Tone::kCyan}, {"Number", Tone::kWhite}};
//   Picture& picture = report.pictures.emplace_back("", image);
//   for (int row = 0; row < count; ++row) {          // row of the findings' table
//     picture.Box({0, row}, left, top, right, bottom);
//     picture.Label({1, row}, {left, top}, std::to_string(row));
//   }
//   WriteReport("out.html", report, findings);
//
// Pointing at a row shows its drawings on every picture, and the reverse; a click on it zooms to
// them. The legend switches layers on and off. All texts are escaped here. Coordinates are those of
// the library: (0, 0) is the centre of the top left pixel.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/geometry.h"
#include "kit/report/findings.h"
#include "quillon/image.h"

namespace quillon::kit {

enum class Tone { kCyan, kAmber, kMagenta, kGreen, kRed, kWhite };

// One kind of drawing and its place in the legend.
struct Layer {
  std::string name;
  Tone tone;
  bool shown = true;  // at first
};

constexpr int kNoRow = -1;

// Where a drawing belongs: an index into the report's layers, a row of the table or kNoRow.
struct Mark {
  int layer;
  int row = kNoRow;
};

// One drawing over a picture.
struct Drawing {
  enum class Kind { kBox, kPolygon, kDots, kCross, kLabel };
  Mark mark;
  Kind kind;
  std::vector<Point> points;  // a box: its outer corners; a cross, a label: one point
  std::string text = {};
};

// A picture with its drawings.
class Picture {
 public:
  // Keeps a copy of the pixels.
  Picture(std::string caption, const GreyImage& image);
  Picture(std::string caption, const ColourImage& image);
  // Keeps none: the image stays as it is until the picture is gone.
  Picture(std::string caption, const GreyImage* image);
  Picture(std::string caption, const ColourImage* image);

  // The same pixels, without the drawings; a page carries them once.
  Picture Again(std::string caption) const;
  bool HasPixelsOf(const Picture& other) const;

  // Adds the drawings of another picture. Its layers have these places here; rows from `end` on are
  // left out.
  void TakeDrawings(const Picture& from, std::span<const int> layers, int end);

  // Another picture of the report, by its place in it, whose pixels lie at the same positions: the
  // drawings can be shown over it too.
  void SetGround(int picture) { ground_ = picture; }
  int Ground() const { return ground_; }  // -1: none

  // Why what was to be done with the picture failed, which stands under it.
  void SetFault(std::string why) { fault_ = std::move(why); }
  const std::string& Fault() const { return fault_; }  // empty: nothing failed

  // The outline around the pixels left ... right, top ... bottom, which are inside.
  void Box(Mark mark, double left, double top, double right, double bottom);
  void Polygon(Mark mark, std::span<const Point> points);
  // A dot for each point: edge points, corners.
  void Dots(Mark mark, std::span<const Point> points);
  void Cross(Mark mark, Point centre);
  void Arrow(Mark mark, Point from, Point tip);
  // A short text whose lower left corner is at the point, where there is room above it.
  void Label(Mark mark, Point at, std::string_view text);
  // The same for the score of a match, at its upper left corner: that shows which way up it is, and
  // leaves its centre free.
  void Score(Mark mark, Point corner, double score);

  const std::string& Caption() const { return caption_; }
  int Width() const { return width_; }
  int Height() const { return height_; }
  std::vector<unsigned char> Png() const;
  // Whether no more than `count` different values of grey are in it.
  bool HasAtMost(int count) const;
  const std::vector<Drawing>& Drawings() const { return drawings_; }
  // The pixels in colour. As all of this class that copies pixels, it throws OutOfMemory.
  void CopyTo(ColourImage& image) const;

 private:
  std::string caption_;
  int width_, height_;
  std::shared_ptr<const GreyImage> grey_;  // one of the two
  std::shared_ptr<const ColourImage> colour_;
  std::vector<Drawing> drawings_ = {};
  int ground_ = -1;
  std::string fault_ = {};
};

struct Report {
  std::string title;
  std::string lead = {};  // HTML under the title, with its texts escaped
  std::vector<Layer> layers = {};
  std::vector<Picture> pictures = {};  // side by side where there is room
  // The pictures are steps of which one is seen at a time, this one at first; -1: they are not.
  int step = -1;
};

// The whole page as text.
std::string RenderReport(const Report& report, const Findings& findings);

// The last picture, the one that was searched, with the drawings of all layers that are shown at
// first, as an image file.
void WriteDrawnPicture(const std::string& path, const Report& report);

// The page as a file; throws Failure naming it.
void WriteReport(const std::string& path, const Report& report, const Findings& findings);

}  // namespace quillon::kit
