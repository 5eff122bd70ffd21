#include "kit/boards/board_inspector.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <string>

#include "kit/boards/local_check.h"
#include "kit/errors.h"
#include "kit/images/blocks.h"
#include "kit/images/pixels.h"
#include "kit/search/blob_search.h"
#include "kit/text/text.h"

namespace quillon::kit {
namespace {

constexpr int kLeastTolerance = 3;  // scanned edges wander by two pixels, warps round by one
constexpr int kFrame = 16;  // wide enough that morphology's border rules change nothing inside
static_assert(kFrame > InspectionRules::kMostTolerance + 2);
constexpr int kGroup = 5;  // gaps of up to twice this do not part what differs into two defects
constexpr int kBlur = 2;   // pixels that a difference reaches farther than the comparison shows it
constexpr double kLeastContrast = 24;  // grey values between material and ground
constexpr int kMostDefects = 20'000;

// The nearest whole number; of numbers no larger than the sides of pictures.
int Round(double value) {
  constexpr int kAbove = 1 << 16;  // makes the number positive, which truncation rounds down
  return static_cast<int>(value + (kAbove + 0.5)) - kAbove;
}

// What the other picture shows of a row of the good board: shifted alike for every few columns,
// over which the shift hardly changes.
void WarpRow(const GreyImage& from, const BoardWarp& warp, int y, const unsigned char* unseen,
             unsigned char* to) {
  constexpr int kBlock = 16, kMiddle = kBlock / 2;
  const BoardWarp::Row row = warp.RowAt(y);
  const double most = std::max(from.width, from.height);
  for (int x = 0; x < from.width; x += kBlock) {
    const Displacement shift = row.At(x + kMiddle);
    const int left = x + Round(std::clamp(shift.x, -most, most));
    const int top = y + Round(std::clamp(shift.y, -most, most));
    const bool inside = top >= 0 && top < from.height;
    if (inside && left >= 0 && left + kBlock <= from.width && x + kBlock <= from.width) {
      std::memcpy(to + x, from.rows[top] + left, kBlock);
      continue;
    }
    for (int i = 0; i < std::min(kBlock, from.width - x); ++i) {
      const bool seen = inside && left + i >= 0 && left + i < from.width;
      to[x + i] = seen ? from.rows[top][left + i] : unseen[x + i];
    }
  }
}

}  // namespace

const char* Name(Difference kind) { return kind == Difference::kMissing ? "missing" : "extra"; }

BoardInspector::BoardInspector(const InspectionRules& rules)
    : rules_(rules), region_(CreateRLERegion(), DestroyRLERegion) {
  if (!region_) throw OutOfMemory("the tables of a region");
}

void BoardInspector::Teach(const GreyImage& good) try {
  if (std::min(good.width, good.height) < ReducedBoard::kLeastSide) {
    throw Failure("is " + SizeText(good.width, good.height) + " pixels; a board has at least " +
                  SizeText(ReducedBoard::kLeastSide, ReducedBoard::kLeastSide));
  }
  width_ = good.width;
  height_ = good.height;
  MakeMaterial(good);
  reducedGood_.Make(material_);
  FrameGood();
  Learn(rules_.tolerance == InspectionRules::kLearned ? kLeastTolerance : rules_.tolerance);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a good board");
}

// 255 where there is material: nowhere on a picture of one brightness, which is a blank board. The
// median takes away single wrong pixels.
void BoardInspector::MakeMaterial(const GreyImage& picture) {
  CallExports([&] { IxMedianFilter3x3(&picture, &material_); });
  const Brightness brightness = Measure(material_);
  if (brightness.contrast < kLeastContrast) {
    for (int y = 0; y < material_.height; ++y) {
      std::memset(material_.rows[y], 0, static_cast<size_t>(material_.width));
    }
    return;
  }
  CallExports([&] {
    IxThreshold(&material_, brightness.level);
    if (!rules_.brightMaterial) IxImageInvert(&material_, &material_);
  });
}

// Every other pixel of every other row tells as much of the level as all of them; for the means,
// every fourth of these rows is enough.
BoardInspector::Brightness BoardInspector::Measure(const GreyImage& image) {
  CallExports([&] { IxImageScaling(&image, &sample_, 0.5, 0.5); });
  constexpr int kRowsPerMean = 4;
  Brightness result = {.level = OtsuLevel(sample_, scratch_), .contrast = 0};
  int64_t count = 0, darkCount = 0, sum = 0, darkSum = 0;
  for (int y = 0; y < sample_.height; y += kRowsPerMean) {
    const unsigned char *grey = sample_.rows[y], *bright = scratch_.rows[y];
    int rowSum = 0, rowDark = 0, rowDarkSum = 0;
    InBlocks(sample_.width, [&](int first, auto length) {
      for (int i = 0; i < length; ++i) {
        const int x = first + i;
        rowSum += grey[x];
        rowDark += bright[x] == 0;
        rowDarkSum += grey[x] & ~bright[x];
      }
    });
    count += sample_.width;
    sum += rowSum;
    darkCount += rowDark;
    darkSum += rowDarkSum;
  }
  if (darkCount > 0 && darkCount < count) {
    result.contrast = static_cast<double>(sum - darkSum) / static_cast<double>(count - darkCount) -
                      static_cast<double>(darkSum) / static_cast<double>(darkCount);
  }
  return result;
}

// Repeats the border of the inner part over the frame.
void BoardInspector::Frame(GreyImage& plane) const {
  for (int y = kFrame; y < kFrame + height_; ++y) {
    unsigned char* row = plane.rows[y];
    std::memset(row, row[kFrame], kFrame);
    std::memset(row + kFrame + width_, row[kFrame + width_ - 1], kFrame);
  }
  const auto bytes = static_cast<size_t>(plane.width);
  for (int i = 0; i < kFrame; ++i) {
    std::memcpy(plane.rows[i], plane.rows[kFrame], bytes);
    std::memcpy(plane.rows[kFrame + height_ + i], plane.rows[kFrame + height_ - 1], bytes);
  }
}

void BoardInspector::FrameGood() {
  const int width = width_ + 2 * kFrame, height = height_ + 2 * kFrame;
  if (certain_.width != width || certain_.height != height || !certain_.bits) {
    certain_.Create(width, height);
  }
  RequirePixels(certain_);
  for (int y = 0; y < height_; ++y) {
    std::memcpy(certain_.rows[kFrame + y] + kFrame, material_.rows[y], static_cast<size_t>(width_));
  }
  Frame(certain_);
  CopyPicture(certain_, possible_);
}

// Brings the picture at hand onto the good board's places; what it does not show is taken as good.
void BoardInspector::FrameOther(const BoardWarp& warp) {
  if (other_.width != certain_.width || other_.height != certain_.height || !other_.bits) {
    other_.Create(certain_.width, certain_.height);
  }
  RequirePixels(other_);
  for (int y = 0; y < height_; ++y) {
    WarpRow(material_, warp, y, certain_.rows[kFrame + y] + kFrame,
            other_.rows[kFrame + y] + kFrame);
  }
  Frame(other_);
}

Registration BoardInspector::Align(const GreyImage& picture) {
  if (picture.width != width_ || picture.height != height_) {
    throw Failure("is " + SizeText(picture.width, picture.height) + " pixels, the good board " +
                  SizeText(width_, height_));
  }
  MakeMaterial(picture);
  reducedOther_.Make(material_);
  Registration registration = registrar_.Register(reducedGood_, reducedOther_);
  if (registration.tiles == 0 && IsBlank()) {
    // A blank board does not show how the other one lies: it is taken to lie as the good one does.
    registration.warp = BoardWarp(width_, height_);
  } else if (registration.tiles == 0) {
    throw Failure("cannot be aligned: the good board has no structure");
  } else if (!registration.Succeeded()) {
    Refuse(registration);
  }
  FrameOther(registration.warp);
  return registration;
}

bool BoardInspector::IsBlank() const {
  constexpr int kDust = 100;  // a board is blank where less than one pixel in so many is material
  const auto& rows = certainProfiles_.rows;
  return std::accumulate(rows.begin(), rows.end(), int64_t{0}) * kDust < int64_t{width_} * height_;
}

// Says why the picture at hand is not this board's.
void BoardInspector::Refuse(const Registration& registration) {
  const struct {
    bool mirrored, upsideDown;
    const char* how;
  } turns[] = {{true, false, "mirrored, left for right"},
               {false, true, "mirrored, upside down"},
               {true, true, "turned by 180 degrees"}};
  GreyImage seen;
  CopyPicture(material_, seen);
  const char* how = nullptr;
  int most = 0;  // places that agree at the best turn so far
  for (const auto& turn : turns) {
    for (int y = 0; y < height_; ++y) {
      const unsigned char* from = seen.rows[turn.upsideDown ? height_ - 1 - y : y];
      if (turn.mirrored) {
        std::reverse_copy(from, from + width_, material_.rows[y]);
      } else {
        std::copy(from, from + width_, material_.rows[y]);
      }
    }
    reducedOther_.Make(material_);
    const Registration turned = registrar_.Register(reducedGood_, reducedOther_);
    if (!turned.Succeeded() || turned.agreeing <= most) continue;
    most = turned.agreeing;
    how = turn.how;
  }
  if (how) throw Failure(std::string("shows this board ") + how);
  throw Failure("does not show this board: " + std::to_string(registration.agreeing) + " of " +
                std::to_string(registration.tiles) + " places agree, at least half must");
}

// Where something may differ is judged a pixel more strictly: the local check decides.
int BoardInspector::Suspicion() const { return std::max(tolerance_ - 1, 1); }

void BoardInspector::Learn(int tolerance) {
  tolerance_ = tolerance;
  CallExports([&] {
    IxErosion(&certain_, &deep_, Suspicion(), Suspicion());
    IxDilation(&possible_, &reached_, Suspicion(), Suspicion());
  });
  certainProfiles_ = CountMaterial(certain_, kFrame);
}

void BoardInspector::Compare() {
  CallExports([&] {
    IxErosion(&other_, &otherDeep_, Suspicion(), Suspicion());
    IxDilation(&other_, &otherReached_, Suspicion(), Suspicion());
    IxImageSub(&deep_, &other_, &missing_);
    IxImageSub(&certain_, &otherReached_, &scratch_);
    IxImageBirwiseOR(&missing_, &scratch_, &missing_);
    IxImageSub(&other_, &reached_, &extra_);
    IxImageSub(&otherDeep_, &possible_, &scratch_);
    IxImageBirwiseOR(&extra_, &scratch_, &extra_);
  });
  CheckLocally({certain_, possible_, other_, certainProfiles_, kFrame}, tolerance_, missing_,
               extra_);
}

// Makes what can be judged the region of interest: places that the other picture shows, but for
// the outermost ones, where edges may have wandered in from outside.
void BoardInspector::ChooseRegion(const BoardWarp& warp) {
  constexpr int kSamples = 8;
  double left = 0, top = 0, right = width_ - 1, bottom = height_ - 1;
  for (int i = 0; i <= kSamples; ++i) {
    const double x = (width_ - 1.0) * i / kSamples, y = (height_ - 1.0) * i / kSamples;
    left = std::max(left, -warp.At(0, y).x);
    right = std::min(right, width_ - 1 - warp.At(width_ - 1, y).x);
    top = std::max(top, -warp.At(x, 0).y);
    bottom = std::min(bottom, height_ - 1 - warp.At(x, height_ - 1).y);
  }
  const int inset = kFrame + tolerance_;
  const int x0 = Round(std::ceil(left)) + inset, x1 = Round(std::floor(right)) + 2 * kFrame - inset;
  const int y0 = Round(std::ceil(top)) + inset, y1 = Round(std::floor(bottom)) + 2 * kFrame - inset;
  if (x0 > x1 || y0 > y1) throw Failure("hardly shows the board: it is shifted too far");
  // Clockwise, so that the rows of the upper and lower boundary belong to it.
  const int corners[] = {x0, y0, x1, y0, x1, y1, x0, y1};
  CallExports([&] { IxPointToRegion(region_.get(), corners, 4); });
}

std::vector<Defect> BoardInspector::Group(const BoardWarp& warp) {
  ChooseRegion(warp);
  CallExports([&] {
    IxImageBirwiseOR(&missing_, &extra_, &scratch_);
    IxDilation(&scratch_, &otherDeep_, kGroup, kGroup);
    IxGrayBlobLabel(&otherDeep_, region_.get(), 1, 255);
  });
  const int count = IxGetBlobCount(region_.get());
  if (count > kMostDefects) {
    throw Failure("differs in more than " + std::to_string(kMostDefects) + " places");
  }
  std::vector<Defect> defects;
  for (int n = 0; n < count; ++n) {
    const double area = IxGetnBlobArea(region_.get(), n);
    const auto pixels = [&](const GreyImage& plane) {
      return Round(IxGetnBlobGrayMean(&plane, region_.get(), n) * area / 255);
    };
    const int missing = pixels(missing_), extra = pixels(extra_);
    if (missing + extra < rules_.minArea) continue;

    int bound[4];  // left, right, top, bottom
    IxGetnBlobBound(region_.get(), n, bound);
    // The dilation by kGroup is taken back, the difference reaches kBlur farther than it shows, and
    // the box has a margin around it.
    const int grow = rules_.margin + kBlur - kGroup;
    const auto x = [&](int at) { return std::clamp(at - kFrame, 0, width_ - 1); };
    const auto y = [&](int at) { return std::clamp(at - kFrame, 0, height_ - 1); };
    const Displacement shift = warp.At(x((bound[0] + bound[1]) / 2), y((bound[2] + bound[3]) / 2));
    const int shiftX = Round(shift.x), shiftY = Round(shift.y);
    defects.push_back({.missing = missing,
                       .extra = extra,
                       .left = x(bound[0] - grow + shiftX),
                       .top = y(bound[2] - grow + shiftY),
                       .right = x(bound[1] + grow + shiftX),
                       .bottom = y(bound[3] + grow + shiftY),
                       .shiftX = shiftX,
                       .shiftY = shiftY});
  }
  return defects;
}

BoardInspection BoardInspector::Inspect(const GreyImage& tested) try {
  BoardInspection inspection = {.registration = Align(tested), .defects = {}};
  Compare();
  inspection.defects = Group(inspection.registration.warp);
  return inspection;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the inspection of a board");
}

void BoardInspector::AddGood(const GreyImage& good) try {
  const Registration registration = Align(good);
  if (rules_.tolerance == InspectionRules::kLearned) {
    // The least tolerance under which this board would have passed.
    while (Compare(), !Group(registration.warp).empty()) {
      if (tolerance_ == InspectionRules::kMostTolerance) {
        throw Failure("is no good board: edges are more than " +
                      std::to_string(InspectionRules::kMostTolerance) + " pixels away");
      }
      Learn(tolerance_ + 1);
    }
  }
  CallExports([&] {
    IxImageBirwiseAND(&certain_, &other_, &certain_);
    IxImageBirwiseOR(&possible_, &other_, &possible_);
  });
  Learn(tolerance_);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a good board");
}

std::vector<Point> BoardInspector::Pixels(const Defect& defect, Difference kind) const try {
  const GreyImage& plane = kind == Difference::kMissing ? missing_ : extra_;
  std::vector<Point> points;
  for (int y = defect.top; y <= defect.bottom; ++y) {
    for (int x = defect.left; x <= defect.right; ++x) {
      const int column = x - defect.shiftX, row = y - defect.shiftY;
      if (column < 0 || column >= width_ || row < 0 || row >= height_) continue;
      if (plane.rows[kFrame + row][kFrame + column]) {
        points.push_back({static_cast<double>(x), static_cast<double>(y)});
      }
    }
  }
  return points;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the pixels of a defect");
}

}  // namespace quillon::kit
