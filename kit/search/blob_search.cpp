#include "kit/search/blob_search.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <string>

#include "kit/errors.h"
#include "kit/images/blocks.h"
#include "kit/images/pixels.h"
#include "kit/text/text.h"

namespace quillon::kit {

Region::Region() : handle(CreateRLERegion(), DestroyRLERegion) {
  if (!handle) throw OutOfMemory("the tables of a region");
}

int OtsuLevel(const GreyImage& image, GreyImage& binary) try {
  CopyPicture(image, binary);
  CallExports([&] { IxOtsuThreshold(&binary); });
  unsigned char level = 0;
  for (int y = 0; y < binary.height; ++y) {
    const unsigned char *grey = image.rows[y], *bright = binary.rows[y];
    InBlocks(binary.width, [&](int first, auto length) {
      for (int i = 0; i < length; ++i) {
        const auto dark = static_cast<unsigned char>(grey[first + i] & ~bright[first + i]);
        level = std::max(level, dark);
      }
    });
  }
  return level;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a binary picture");
}

void MakeBinary(const GreyImage& image, Band band, GreyImage& binary) {
  binary.Create(image.width + 1, image.height);
  if (!binary.bits) throw OutOfMemory("a binary picture");
  for (int y = 0; y < image.height; ++y) {
    const unsigned char* from = image.rows[y];
    unsigned char* to = binary.rows[y];
    for (int x = 0; x < image.width; ++x) to[x] = from[x] >= band.low && from[x] <= band.high;
  }
}

// Filling treats what touches only the left edge or the bottom row as enclosed; a frame of zeros
// keeps all four edges open.
void FillHoles(RLERegion* region, GreyImage& image, int value) try {
  GreyImage framed;
  framed.Create(image.width + 2, image.height + 2);
  if (!framed.bits) throw OutOfMemory("a binary picture");
  const auto width = static_cast<size_t>(image.width);
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(framed.rows[y + 1] + 1, image.rows[y], width);
  }
  if (!IxBinaryFillUp(&framed, region, value)) throw OutOfMemory("filling holes");
  for (int y = 0; y < image.height; ++y) {
    std::memcpy(image.rows[y], framed.rows[y + 1] + 1, width);
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("filling holes");
}

int64_t BoundaryLength(const std::vector<int>& points) {
  int64_t length = 0;
  for (size_t i = 0; i < points.size(); i += 2) {
    const size_t next = (i + 2) % points.size();
    length +=
        std::max(std::abs(points[next] - points[i]), std::abs(points[next + 1] - points[i + 1]));
  }
  return length;
}

Failure NoPixelInPolygon(int width, int height) {
  return Failure("the polygon holds no pixel of the picture of " + SizeText(width, height));
}

namespace {

// Twice the area, positive where the points run clockwise as displayed.
int64_t SignedArea(const std::vector<int>& points) {
  int64_t area = 0;
  for (size_t i = 0; i < points.size(); i += 2) {
    const size_t next = (i + 2) % points.size();
    area += int64_t{points[i]} * points[next + 1] - int64_t{points[next]} * points[i + 1];
  }
  return area;
}

}  // namespace

void TurnClockwise(std::vector<int>& points) {
  if (SignedArea(points) >= 0) return;
  std::reverse(points.begin(), points.end());
  for (size_t i = 0; i < points.size(); i += 2) std::swap(points[i], points[i + 1]);
}

std::vector<int> WholePicture(const GreyImage& image) try {
  const int right = image.width, bottom = image.height - 1;
  return {0, 0, right, 0, right, bottom, 0, bottom};
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a polygon");
}

namespace {

// The pixels of all blobs of ones.
int64_t LabelOnes(RLERegion* region, const GreyImage& image) {
  CallExports([&] { IxGrayBlobLabel(&image, region, 1, 1); });
  int64_t pixels = 0;
  for (int n = 0; n < IxGetBlobCount(region); ++n) pixels += IxGetnBlobArea(region, n);
  return pixels;
}

}  // namespace

// Labelling that fills the tables stops without a word, but then its blobs have fewer pixels than
// the means over the region tell.
double LabelAll(RLERegion* region, const GreyImage& image, const GreyImage& binary) try {
  GreyImage full;
  MakeBinary(image, {0, 255}, full);
  const double ones = IxGetnRegionGrayMean(&binary, region);
  const double share = IxGetnRegionGrayMean(&full, region);
  const auto inside = static_cast<double>(LabelOnes(region, full));
  const int64_t expected = share > 0 ? std::llround(ones / share * inside) : 0;
  const int64_t labelled = LabelOnes(region, binary);
  if (labelled < expected) {
    throw Failure(
        "too many blobs: labelling takes 50000 of them, in 300000 runs; narrow the band or the "
        "polygon, or smooth the picture first");
  }
  constexpr int kMostFeatures = 20'000;
  if (const int count = IxGetBlobCount(region); count > kMostFeatures) {
    throw Failure(
        std::to_string(count) + " blobs are more than the " + std::to_string(kMostFeatures) +
        " that can be measured; narrow the band or the polygon, or smooth the picture first");
  }
  return share;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("blobs");
}

std::vector<BlobFeature> SelectedBlobs(RLERegion* region) try {
  std::vector<BlobFeature> blobs(static_cast<size_t>(IxGetSelectBlobCount(region)));
  if (!blobs.empty()) IxGetBlobList(region, blobs.data());
  return blobs;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("blobs");
}

void SelectBlobs(const BlobSelection& selection, RLERegion* region) {
  const auto& [area, width, height, x, y] = selection;
  if (area.AreGiven()) IxSelectBlobArea(region, area.max, area.min);
  if (width.AreGiven()) IxSelectBlobWidth(region, width.max, width.min);
  if (height.AreGiven()) IxSelectBlobHeight(region, height.max, height.min);
  if (x.AreGiven() || y.AreGiven()) IxLocateBlobCenter(region, x.min, x.max, y.min, y.max);
}

// Both lists are in the order of the blobs, so each record is the next one equal to it; blobs with
// equal records are selected together or not at all.
std::vector<int> NumbersOf(const std::vector<BlobFeature>& selected,
                           const std::vector<BlobFeature>& all) try {
  const auto isSame = [](const BlobFeature& one, const BlobFeature& other) {
    // Not by std::ranges, which the library of the WebAssembly compiler does not have yet.
    const auto a = std::as_bytes(std::span(&one, 1)), b = std::as_bytes(std::span(&other, 1));
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  };
  std::vector<int> numbers;
  numbers.reserve(selected.size());
  size_t n = 0;
  for (const BlobFeature& blob : selected) {
    while (!isSame(all[n], blob)) ++n;
    numbers.push_back(static_cast<int>(n++));
  }
  return numbers;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("blobs");
}

std::vector<FoundBlob> BlobFinder::Find(const GreyImage& image, const BlobQuery& query) try {
  if (query.band) {
    band_ = *query.band;
  } else {
    const int level = OtsuLevel(image, binary_);
    band_ = query.dark ? Band{0, level} : Band{level + 1, 255};
  }
  std::vector<int> outline = query.polygon.empty() ? WholePicture(image) : query.polygon;
  TurnClockwise(outline);
  MakeBinary(image, band_, binary_);
  if (query.fillHoles) FillHoles(region_, binary_, 1);
  CallExports(
      [&] { IxPointToRegion(region_, outline.data(), static_cast<int>(outline.size() / 2)); });
  share_ = LabelAll(region_, image, binary_);
  if (!(share_ > 0)) throw NoPixelInPolygon(image.width, image.height);
  found_ = 0;
  // Where nothing was labelled, the features of the image before would stay.
  if (!CallExports([&] { return IxComputeAllBlobFeature(region_); })) return {};
  const std::vector<BlobFeature> all = SelectedBlobs(region_);
  SelectBlobs(query.selection, region_);
  const std::vector<BlobFeature> selected = SelectedBlobs(region_);
  const std::vector<int> numbers = NumbersOf(selected, all);
  found_ = all.size();
  std::vector<FoundBlob> found;
  for (size_t i = 0; i < selected.size(); ++i) {
    int bound[4] = {};
    IxGetnBlobBound(region_, numbers[i], bound);
    const auto [left, right, top, bottom] = bound;
    found.push_back({numbers[i], selected[i], left, top, right, bottom,
                     IxGetnBlobGrayMean(&image, region_, numbers[i])});
  }
  return found;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("blobs");
}

}  // namespace quillon::kit
