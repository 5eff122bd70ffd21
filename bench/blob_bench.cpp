// Blob analysis beside OpenCV: labelling, labelling with all features, fill-up.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "blob/features.h"
#include "blob/labelling.h"
#include "blob/polygon.h"
#include "blob/queries.h"
#include "families.h"
#include "point/threshold.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

RLERegion& RegionOf(const Frame& frame) { return *static_cast<RLERegion*>(frame.state.get()); }

// A region of interest of the whole image, its last column included.
void MakeRegion(Frame& frame) {
  frame.state = {CreateRegion(), DestroyRegion};
  const int right = frame.source.width, bottom = frame.source.height - 1;
  const int corners[] = {0, 0, right, 0, right, bottom, 0, bottom};
  BuildRegionOfInterest(RegionOf(frame), corners, 4);
}

// `count` turned ellipses on a jittered grid, none touching another; with holes in their middles or
// without.
void DrawBlobs(GreyImage& image, int count, bool holes) {
  cv::Mat canvas = cv::Mat::zeros(image.height, image.width, CV_8UC1);
  cv::RNG random(12345);
  const int columns = static_cast<int>(std::sqrt(count * double(image.width) / image.height));
  const int rows = (count + columns - 1) / columns;
  const double cellX = double(image.width) / columns, cellY = double(image.height) / rows;
  const double largest = std::min(cellX, cellY) / 2 - 1.5;
  for (int i = 0; i < count; ++i) {
    const double a = largest * random.uniform(0.6, 0.95), b = a * random.uniform(0.4, 1.0);
    const double x = (i % columns + 0.5) * cellX, y = (i / columns + 0.5) * cellY;
    const cv::RotatedRect box({float(x), float(y)}, {float(2 * a), float(2 * b)},
                              float(random.uniform(0, 180)));
    cv::ellipse(canvas, box, 255, cv::FILLED);
    if (holes) cv::circle(canvas, {int(x), int(y)}, int(b / 3), 0, cv::FILLED);
  }
  FromMat(canvas, image);
}

void Label(Frame& f) { LabelGrayBlobs(f.kernels, RegionOf(f), f.source, 255, 255); }

void LabelWithFeatures(Frame& f) {
  Label(f);
  ComputeAllBlobFeatures(f.kernels, RegionOf(f));
}

struct PeerBlobs {
  cv::Mat labels, stats, centres;
  std::vector<std::vector<cv::Point>> contours;
  std::vector<cv::RotatedRect> rectangles;
};

PeerBlobs& BlobsOf(const PeerFrame& frame) { return *static_cast<PeerBlobs*>(frame.state.get()); }

void MakePeerBlobs(PeerFrame& frame) { frame.state = std::make_shared<PeerBlobs>(); }

void LabelPeer(PeerFrame& f) {
  PeerBlobs& blobs = BlobsOf(f);
  cv::connectedComponentsWithStats(f.source, blobs.labels, blobs.stats, blobs.centres, 8);
}

void LabelPeerWithFeatures(PeerFrame& f) {
  LabelPeer(f);
  PeerBlobs& blobs = BlobsOf(f);
  cv::findContours(f.source, blobs.contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
  blobs.rectangles.clear();
  for (const auto& contour : blobs.contours) blobs.rectangles.push_back(cv::minAreaRect(contour));
}

std::string SameAreas(const Frame& frame, const PeerFrame& peer) {
  const RLERegion& region = RegionOf(frame);
  const cv::Mat& stats = BlobsOf(peer).stats;
  std::vector<int> ours, theirs;
  for (int n = 0; n < region.blobCount; ++n) {
    ours.push_back(region.blobs[region.blobIndex[n]].area);
  }
  for (int i = 1; i < stats.rows; ++i) theirs.push_back(stats.at<int>(i, cv::CC_STAT_AREA));
  std::sort(ours.begin(), ours.end());
  std::sort(theirs.begin(), theirs.end());
  if (ours == theirs) return "";
  return std::to_string(ours.size()) + " and " + std::to_string(theirs.size()) +
         " blobs, areas differ";
}

std::string SameRectangles(const Frame& frame, const PeerFrame& peer) {
  const std::string areas = SameAreas(frame, peer);
  if (!areas.empty()) return areas;
  const RLERegion& region = RegionOf(frame);
  std::vector<double> ours, theirs;
  for (int n = 0; n < region.selectCount; ++n) {
    ours.push_back(double(region.features[n].width) * region.features[n].height);
  }
  for (const auto& r : BlobsOf(peer).rectangles) theirs.push_back(double(r.size.area()));
  if (ours.size() != theirs.size()) return "numbers of rectangles differ";
  std::sort(ours.begin(), ours.end());
  std::sort(theirs.begin(), theirs.end());
  for (size_t i = 0; i < ours.size(); ++i) {
    if (std::abs(ours[i] - theirs[i]) > 1e-3 * (1 + theirs[i])) return "rectangles differ";
  }
  return "";
}

// Both sides work on a copy, which is part of the time: a filled image has nothing left to fill.
void FillUp(Frame& f) {
  if (!f.result.bits) f.result.Create(f.source.width, f.source.height);
  std::memcpy(f.result.bits, f.source.bits, static_cast<size_t>(f.source.imageSize));
  FillUpHoles(f.kernels, RegionOf(f), f.result, 255);
}

// Background reached from above the top row or right of the last column stays; the rest is white.
void FillUpPeer(PeerFrame& f) {
  constexpr int kReached = 128;
  cv::Mat framed;
  cv::copyMakeBorder(f.source, framed, 1, 0, 0, 1, cv::BORDER_CONSTANT, 0);
  cv::floodFill(framed, {framed.cols - 1, 0}, kReached, nullptr, {}, {}, 8);
  const cv::Mat inner = framed({0, 1, f.source.cols, f.source.rows});
  cv::compare(inner, kReached, f.result, cv::CMP_NE);
}

// The means of a whole image's channels. The region has one column more, which adds nothing.
struct Means {
  std::shared_ptr<void> region;
  ColourMean colour;
};

Means& MeansOf(const Frame& frame) { return *static_cast<Means*>(frame.state.get()); }

void AddMeans() {
  const auto prepare = [](Frame& f) {
    MakeRegion(f);
    f.state = std::make_shared<Means>(Means{.region = f.state, .colour = {}});
  };
  const auto preparePeer = [](PeerFrame& f) { f.state = std::make_shared<cv::Scalar>(); };
  const auto region = [](Frame& f) -> RLERegion& {
    return *static_cast<RLERegion*>(MeansOf(f).region.get());
  };
  const auto peerMean = [](const PeerFrame& f) -> cv::Scalar& {
    return *static_cast<cv::Scalar*>(f.state.get());
  };
  const auto check = [=](const Frame& f, const PeerFrame& peer) -> std::string {
    const ColourMean& mean = MeansOf(f).colour;
    const auto& of = *static_cast<RLERegion*>(MeansOf(f).region.get());
    const cv::Scalar ours = cv::Scalar(mean.blue, mean.green, mean.red) * double(of.roiArea);
    const cv::Scalar theirs = peerMean(peer) * double(peer.source.total());
    return cv::norm(ours - theirs) < 1e-9 * cv::norm(theirs) ? "" : "means differ";
  };
  Add({.name = "region_mean_grey",
       .bytesPerPixel = 1,
       .prepare = prepare,
       .ours =
           [=](Frame& f) {
             MeansOf(f).colour.blue = GrayMeanOfRegion(f.kernels, &f.source, region(f));
           },
       .preparePeer = preparePeer,
       .peer = [=](PeerFrame& f) { peerMean(f) = cv::mean(f.source); },
       .check = check});
  Add({.name = "region_mean_colour",
       .bytesPerPixel = 3,
       .prepare = prepare,
       .ours =
           [=](Frame& f) {
             MeansOf(f).colour = ColourMeanOfRegion(f.kernels, &f.colour, region(f));
           },
       .preparePeer = preparePeer,
       .peer = [=](PeerFrame& f) { peerMean(f) = cv::mean(f.colour); },
       .check = check});
}

// Labelling of real pictures, binarised at Otsu's level: one row for each picture of the folder
// that QUILLON_DATA names.
void AddPhotos() {
  const char* data = std::getenv("QUILLON_DATA");
  if (!data) return;
  std::vector<std::filesystem::path> files;
  std::error_code missing;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(data) / "photos", missing)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    const cv::Mat photo = cv::imread(file.string(), cv::IMREAD_GRAYSCALE);
    if (photo.empty()) continue;
    const auto prepare = [photo](Frame& f) {
      FromMat(photo, f.source);
      ApplyThreshold(f.kernels, f.source, ComputeOtsuThreshold(f.kernels, f.source));
      MakeRegion(f);
    };
    Add({.name = "blob_label_" + file.stem().string(),
         .bytesPerPixel = 1,
         .prepare = prepare,
         .ours = Label,
         .preparePeer = MakePeerBlobs,
         .peer = LabelPeer,
         .check = SameAreas,
         .sizes = {{photo.cols, photo.rows}}});
  }
}

}  // namespace

void AddBlobOperations() {
  AddPhotos();
  AddMeans();
  for (const int count : {500, 5000}) {
    const auto prepare = [count](Frame& f) {
      DrawBlobs(f.source, count, /*holes=*/false);
      MakeRegion(f);
    };
    Add({.name = "blob_label_" + std::to_string(count),
         .bytesPerPixel = 1,
         .prepare = prepare,
         .ours = Label,
         .preparePeer = MakePeerBlobs,
         .peer = LabelPeer,
         .check = SameAreas});
    Add({.name = "blob_features_" + std::to_string(count),
         .bytesPerPixel = 1,
         .prepare = prepare,
         .ours = LabelWithFeatures,
         .preparePeer = MakePeerBlobs,
         .peer = LabelPeerWithFeatures,
         .check = SameRectangles});
  }
  Add({.name = "fill_up",
       .prepare =
           [](Frame& f) {
             DrawBlobs(f.source, 500, /*holes=*/true);
             MakeRegion(f);
           },
       .ours = FillUp,
       .peer = FillUpPeer,
       .check = PixelsWithin(0)});
}

}  // namespace quillon::bench
