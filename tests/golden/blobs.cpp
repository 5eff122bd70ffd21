// Regions, blobs, features and selections. The plain side follows the journey from polygon to
// record in plain forms alone.
#include <array>
#include <memory>

#include "blob/features_reference.h"
#include "blob/fill_up_reference.h"
#include "blob/labelling_reference.h"
#include "blob/polygon_reference.h"
#include "golden/golden.h"
#include "quillon/quillon.h"
#include "support/bitmap.h"

namespace quillon::test::golden {
namespace {

struct Deleter {
  void operator()(RLERegion* region) const { DestroyRLERegion(region); }
};
using RegionOwner = std::unique_ptr<RLERegion, Deleter>;

// A region of interest and a band of values.
struct Question {
  std::vector<int> points;
  int low, high;
};

// More than the image, then a polygon with crossing edges that leaves it.
std::vector<Question> Questions(const Picture& picture) {
  const int w = picture.grey.width, h = picture.grey.height;
  Random random(picture.seed);
  std::vector<int> star;
  for (int i = 0; i < 7; ++i) {
    star.push_back(random.Within(-5, w + 5));
    star.push_back(random.Within(-5, h + 5));
  }
  return {{{-1, -1, w, -1, w, h, -1, h}, 100, 255}, {star, 130, 0}};
}

struct PlainBlob {
  BlobRecord record;
  std::vector<RunRecord> runs;
  int left, right, top, bottom;
  std::array<float, 13> rectangle;
};

struct PlainRegion {
  std::vector<RunRecord> runs;
  int area;
  std::vector<PlainBlob> blobs;
};

PlainRegion PlainBlobs(const GreyImage& image, const Question& question) {
  const reference::Runs roi = reference::Polygon(question.points);
  PlainRegion region;
  region.area = roi.area;
  for (const Span& span : roi.spans) {
    region.runs.push_back({-1, span.xStart, span.xEnd, span.y, -1});
  }
  const reference::Labelling labelling(image, region.runs, question.low, question.high);
  for (size_t n = 0; n < labelling.blobIndex.size(); ++n) {
    const int number = static_cast<int>(n);
    const auto label = static_cast<size_t>(labelling.blobIndex[n]);
    PlainBlob blob = {labelling.blobs[label], {}, INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, {}};
    for (const RunRecord& run : labelling.runs) {
      if (run.blob != number) continue;
      blob.runs.push_back(run);
      blob.left = std::min(blob.left, run.xStart), blob.right = std::max(blob.right, run.xEnd);
      blob.top = std::min(blob.top, run.y), blob.bottom = std::max(blob.bottom, run.y);
    }
    blob.rectangle = reference::Rectangle(
        reference::Melkman(reference::EdgePoints(blob.record, labelling.runs, number)));
    region.blobs.push_back(blob);
  }
  return region;
}

RegionOwner LabelByExports(const GreyImage& image, const Question& question) {
  RegionOwner region(CreateRLERegion());
  IxPointToRegion(region.get(), question.points.data(),
                  static_cast<int>(question.points.size() / 2));
  IxGrayBlobLabel(&image, region.get(), question.low, question.high);
  return region;
}

// One line of what is asked of labelled regions.
template <class Export, class Plain>
Operation OfRegions(const std::string& name, Export exported, Plain plain) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            for (const Question& question : Questions(picture)) {
              const RegionOwner region = LabelByExports(picture.grey, question);
              exported(region.get(), picture, digest);
            }
          },
          [=](const Picture& picture, Digest& digest) {
            for (const Question& question : Questions(picture)) {
              plain(PlainBlobs(picture.grey, question), picture, digest);
            }
          }};
}

// The same, of every blob.
template <class Export, class Plain>
Operation OfBlobs(const std::string& name, Export exported, Plain plain) {
  return OfRegions(
      name,
      [=](RLERegion* region, const Picture& picture, Digest& digest) {
        for (int n = 0; n < IxGetBlobCount(region); ++n) exported(region, n, picture, digest);
      },
      [=](const PlainRegion& region, const Picture& picture, Digest& digest) {
        for (const PlainBlob& blob : region.blobs) plain(blob, picture, digest);
      });
}

// Sums over runs, of grey (channel -1) or of a byte of colour.
double PlainMean(const std::vector<RunRecord>& runs, int area, const Picture& picture,
                 int channel) {
  uint32_t sum = 0;
  for (const RunRecord& run : runs) {
    if (run.y < 0 || run.y >= picture.grey.height) continue;
    for (int x = std::max(run.xStart, 0); x <= std::min(run.xEnd, picture.grey.width - 1); ++x) {
      sum +=
          channel < 0 ? picture.grey.rows[run.y][x] : picture.colour.rows[run.y][3 * x + channel];
    }
  }
  return area == 0 ? 0 : sum / static_cast<double>(area);
}

void AddMeans(std::vector<Operation>& all) {
  all.push_back(OfBlobs(
      "IxGetnBlobGrayMean",
      [](RLERegion* region, int n, const Picture& picture, Digest& digest) {
        digest.Add(IxGetnBlobGrayMean(&picture.grey, region, n));
      },
      [](const PlainBlob& blob, const Picture& picture, Digest& digest) {
        digest.Add(PlainMean(blob.runs, blob.record.area, picture, -1));
      }));
  all.push_back(OfBlobs(
      "IxGetnBlobColorMean",
      [](RLERegion* region, int n, const Picture& picture, Digest& digest) {
        double means[3];
        IxGetnBlobColorMean(&picture.colour, region, n, means);
        digest.AddAll(means);
      },
      [](const PlainBlob& blob, const Picture& picture, Digest& digest) {
        for (int c : {2, 1, 0}) digest.Add(PlainMean(blob.runs, blob.record.area, picture, c));
      }));
  all.push_back(OfRegions(
      "IxGetnRegionGrayMean",
      [](RLERegion* region, const Picture& picture, Digest& digest) {
        digest.Add(IxGetnRegionGrayMean(&picture.grey, region));
      },
      [](const PlainRegion& region, const Picture& picture, Digest& digest) {
        digest.Add(PlainMean(region.runs, region.area, picture, -1));
      }));
  all.push_back(OfRegions(
      "IxGetnRegionColorMean",
      [](RLERegion* region, const Picture& picture, Digest& digest) {
        double means[3];
        IxGetnRegionColorMean(&picture.colour, region, means);
        digest.AddAll(means);
      },
      [](const PlainRegion& region, const Picture& picture, Digest& digest) {
        for (int c : {2, 1, 0}) digest.Add(PlainMean(region.runs, region.area, picture, c));
      }));
}

BlobFeature PlainFeature(const PlainBlob& blob) {
  const auto& r = blob.rectangle;
  BlobFeature feature = {.area = blob.record.area,
                         .centreX = blob.record.centreX,
                         .centreY = blob.record.centreY,
                         .rectCentreX = r[0],
                         .rectCentreY = r[1],
                         .height = r[2],
                         .width = r[3],
                         .angle = r[4],
                         .corners = {},
                         .selected = 1,
                         .reserved = {}};
  std::copy(r.begin() + 5, r.end(), feature.corners);
  return feature;
}

void AddFeature(const BlobFeature& f, Digest& digest) {
  digest.Add(f.area);
  for (double number : {f.centreX, f.centreY}) digest.Add(number);
  for (float number : {f.rectCentreX, f.rectCentreY, f.height, f.width, f.angle}) {
    digest.Add(number);
  }
  digest.AddAll(f.corners);
  digest.Add(f.selected);
}

void AddSelection(RLERegion* region, Digest& digest) {
  std::vector<BlobFeature> list(static_cast<size_t>(IxGetSelectBlobCount(region)) + 1);
  digest.Add(IxGetSelectBlobCount(region));
  if (!IxGetBlobList(region, list.data())) return;
  list.pop_back();
  for (const BlobFeature& feature : list) AddFeature(feature, digest);
}

// All features, a selection, and all of them again.
template <class Select, class Keeps>
Operation Selection(const std::string& name, Select select, Keeps keeps) {
  return OfRegions(
      name,
      [=](RLERegion* region, const Picture&, Digest& digest) {
        digest.Add(IxComputeAllBlobFeature(region));
        digest.Add(select(region));
        AddSelection(region, digest);
        digest.Add(IxReSelectBlob(region));
        AddSelection(region, digest);
      },
      [=](const PlainRegion& region, const Picture&, Digest& digest) {
        const bool any = !region.blobs.empty();
        std::vector<BlobFeature> list, kept;
        for (const PlainBlob& blob : region.blobs) list.push_back(PlainFeature(blob));
        std::copy_if(list.begin(), list.end(), std::back_inserter(kept), keeps);
        digest.Add(any);
        digest.Add(any);
        const auto add = [&](const std::vector<BlobFeature>& selected) {
          digest.Add(static_cast<int>(selected.size()));
          for (const BlobFeature& feature : selected) AddFeature(feature, digest);
        };
        add(kept);
        digest.Add(!kept.empty());
        add(kept.empty() ? kept : list);
      });
}

void AddSelections(std::vector<Operation>& all) {
  all.push_back(Selection(
      "IxComputeAllBlobFeature IxGetBlobList IxGetSelectBlobCount IxReSelectBlob IxSelectBlobArea",
      [](RLERegion* region) { return IxSelectBlobArea(region, 60, 3); },
      [](const BlobFeature& f) { return f.area >= 3 && f.area <= 60; }));
  all.push_back(Selection(
      "IxSelectBlobWidth", [](RLERegion* region) { return IxSelectBlobWidth(region, 6, 1); },
      [](const BlobFeature& f) { return f.width >= 1 && f.width <= 6; }));
  all.push_back(Selection(
      "IxSelectBlobHeight", [](RLERegion* region) { return IxSelectBlobHeight(region, 9, 2); },
      [](const BlobFeature& f) { return f.height >= 2 && f.height <= 9; }));
  all.push_back(Selection(
      "IxLocateBlobCenter",
      [](RLERegion* region) { return IxLocateBlobCenter(region, 2, 70, 1, 40); },
      [](const BlobFeature& f) {
        return f.centreX >= 2 && f.centreX <= 70 && f.centreY >= 1 && f.centreY <= 40;
      }));
}

// The picture of a region, twice: runs without their last pixel in red, the image by exclusive-or.
Operation Display() {
  return {"IxPointToRegion IxImgAssignToRegion IxGetRegDisplay",
          [](const Picture& picture, Digest& digest) {
            const int width = picture.grey.width, height = picture.grey.height;
            for (const Question& question : Questions(picture)) {
              const RegionOwner region = LabelByExports(picture.grey, question);
              IxImgAssignToRegion(region.get(), &picture.grey);
              for (int i = 0; i < 2; ++i) {
                const uint8_t* bits = BitsOf(IxGetRegDisplay(region.get()));
                const ptrdiff_t stride = (3 * width + 3) / 4 * 4;
                for (int y = 0; y < height; ++y) {
                  digest.Add(bits + (height - 1 - y) * stride, static_cast<size_t>(3 * width));
                }
              }
            }
          },
          [](const Picture& picture, Digest& digest) {
            for (const Question& question : Questions(picture)) {
              ColourImage display;
              display.Create(picture.grey.width, picture.grey.height);
              for (int i = 0; i < 2; ++i) {
                for (const Span& span : reference::Polygon(question.points).spans) {
                  if (span.y < 0 || span.y >= display.height) continue;
                  for (int x = span.xStart; x < span.xEnd; ++x) {
                    if (x < 0 || x >= display.width) continue;
                    uint8_t* pixel = display.rows[span.y] + 3 * x;
                    pixel[0] = pixel[1] = 0, pixel[2] = 125;
                  }
                }
                for (int y = 0; y < display.height; ++y) {
                  for (int x = 0; x < 3 * display.width; ++x) {
                    display.rows[y][x] ^= picture.grey.rows[y][x / 3];
                  }
                  digest.Add(display.rows[y], static_cast<size_t>(3 * display.width));
                }
              }
            }
          }};
}

Operation FillUp() {
  constexpr int kValues[] = {0, 137, 255};
  return {"IxBinaryFillUp",
          [=](const Picture& picture, Digest& digest) {
            const RegionOwner region(CreateRLERegion());
            GreyImage image;
            for (int value : kValues) {
              image.CopyFrom(&picture.grey);
              digest.Add(IxBinaryFillUp(&image, region.get(), value));
              digest.AddStore(image);
            }
          },
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            for (int value : kValues) {
              image.CopyFrom(&picture.grey);
              reference::FillHoles(image, static_cast<uint8_t>(value));
              digest.Add(true);
              digest.AddStore(image);
            }
          }};
}

}  // namespace

void AddBlobs(std::vector<Operation>& all) {
  all.push_back(Display());
  all.push_back(FillUp());
  all.push_back(OfBlobs(
      "IxGrayBlobLabel IxGetBlobCount IxGetnBlobArea",
      [](RLERegion* region, int n, const Picture&, Digest& digest) {
        digest.Add(IxGetnBlobArea(region, n));
      },
      [](const PlainBlob& blob, const Picture&, Digest& digest) { digest.Add(blob.record.area); }));
  all.push_back(OfBlobs(
      "IxGetnBlobCenter",
      [](RLERegion* region, int n, const Picture&, Digest& digest) {
        float centre[2];
        IxGetnBlobCenter(region, n, centre);
        digest.AddAll(centre);
      },
      [](const PlainBlob& blob, const Picture&, Digest& digest) {
        digest.Add(static_cast<float>(blob.record.centreX));
        digest.Add(static_cast<float>(blob.record.centreY));
      }));
  all.push_back(OfBlobs(
      "IxGetnBlobBound",
      [](RLERegion* region, int n, const Picture&, Digest& digest) {
        int bound[4];
        IxGetnBlobBound(region, n, bound);
        digest.AddAll(bound);
      },
      [](const PlainBlob& blob, const Picture&, Digest& digest) {
        for (int side : {blob.left, blob.right, blob.top, blob.bottom}) digest.Add(side);
      }));
  all.push_back(OfBlobs(
      "IxGetBlobMinRect",
      [](RLERegion* region, int n, const Picture&, Digest& digest) {
        float rectangle[13] = {};
        digest.Add(IxGetBlobMinRect(region, n, rectangle));
        digest.AddAll(rectangle);
      },
      [](const PlainBlob& blob, const Picture&, Digest& digest) {
        digest.Add(true);
        digest.AddAll(blob.rectangle);
      }));
  AddMeans(all);
  AddSelections(all);
}

}  // namespace quillon::test::golden
