// Blobs, and filling holes.
#include "kit/search/blob_search.h"

#include "kit/operations/operation.h"
#include "kit/operations/queries.h"

namespace quillon::kit {
namespace {

template <class Worker>
struct WorkerTool : Tool {
  Worker worker;
};

template <class Worker>
std::unique_ptr<Tool> Make(const Values&, const Sources&) {
  return std::make_unique<WorkerTool<Worker>>();
}

template <class Worker>
Worker& WorkerOf(const Call& call) {
  return static_cast<WorkerTool<Worker>&>(*call.tool).worker;
}

void FindBlobs(const Call& call) {
  const BlobQuery query = BlobQueryOf(call.values);
  for (const FoundBlob& blob : WorkerOf<BlobFinder>(call).Find(*call.a.grey, query)) {
    const BlobFeature& feature = blob.feature;
    Thing thing = {.area = double(feature.area),
                   .x = feature.centreX,
                   .y = feature.centreY,
                   .width = feature.width,
                   .height = feature.height,
                   .angle = feature.angle,
                   .mean = blob.mean,
                   .left = blob.left,
                   .top = blob.top,
                   .right = blob.right,
                   .bottom = blob.bottom};
    std::copy(std::begin(feature.corners), std::end(feature.corners), thing.corners.begin());
    call.result.things.push_back(thing);
  }
}

void FillUp(const Call& call) {
  call.result.picture.CopyFrom(call.a.grey);
  if (!call.result.picture.bits) return;
  FillHoles(WorkerOf<Region>(call), call.result.picture, call.values.Whole("value"));
}

Argument Least(const char* name, const char* summary) {
  return Whole(name, 0, INT_MAX, summary).Optional();
}

}  // namespace

BlobQuery BlobQueryOf(const Values& values) {
  BlobQuery query;
  if (values.Has("band")) {
    const auto band = values.List<int>("band");
    query.band = {band[0], band[1]};
  }
  query.dark = values.Flag("dark");
  query.fillHoles = values.Flag("fill_holes");
  if (values.Has("polygon")) {
    for (const auto& point : values.List<std::array<int, 2>>("polygon")) {
      query.polygon.insert(query.polygon.end(), point.begin(), point.end());
    }
  }
  const auto between = [&](const char* least, const char* most) {
    Bounds bounds;
    if (values.Has(least)) bounds.min = values.Whole(least);
    if (values.Has(most)) bounds.max = values.Whole(most);
    return bounds;
  };
  const auto within = [&](const char* name) {
    if (!values.Has(name)) return Bounds{};
    const auto range = values.List<int>(name);
    return Bounds{range[0], range[1]};
  };
  query.selection = {between("min_area", "max_area"), between("min_width", "max_width"),
                     between("min_height", "max_height"), within("center_x"), within("center_y")};
  return query;
}

std::vector<Operation> BlobOperations() {
  constexpr const char* kFamily = "blobs";
  return {
      {.name = "fill-holes",
       .family = kFamily,
       .summary = "what pixels of a value enclose gets that value",
       .arguments = {Whole("value", 1, 255, "of the pixels that enclose").Or("255")},
       .exports = {{"IxBinaryFillUp"}},
       .run = FillUp,
       .prepare = Make<Region>},
      {.name = "blobs",
       .family = kFamily,
       .summary = "connected groups of bright or dark pixels, diagonals included",
       .output = Kind::kBlobs,
       .arguments =
           {WholeRange("band", 0, 255,
                       "grey values of their pixels, both included; without: above the level that "
                       "separates dark and bright best")
                .Optional(),
            Flag("dark", "the pixels at or below that level instead").Or("false").Excludes("band"),
            Flag("fill_holes", "count what blobs enclose as theirs").Or("false"),
            Points("polygon", "only inside this polygon, boundary included").Optional(),
            Least("min_area", "keep blobs of an area of at least this").In("pixels"),
            Least("max_area", "keep blobs of an area of at most this").In("pixels"),
            Least("min_width", "keep blobs of a turned rectangle with a width of at least this")
                .In("pixels"),
            Least("max_width", "keep blobs of a turned rectangle with a width of at most this")
                .In("pixels"),
            Least("min_height", "keep blobs of a turned rectangle with a height of at least this")
                .In("pixels"),
            Least("max_height", "keep blobs of a turned rectangle with a height of at most this")
                .In("pixels"),
            WholeRange("center_x", -kFarthest, kFarthest, "keep blobs whose mean column is within")
                .Optional(),
            WholeRange("center_y", -kFarthest, kFarthest, "keep blobs whose mean row is within")
                .Optional()},
       .exports = {{"CreateRLERegion", "a region object with its blobs"},
                   {"DestroyRLERegion", "releases it"},
                   {"IxPointToRegion", "the region inside a polygon"},
                   {"IxGrayBlobLabel", "connected pixels of a band of grey"},
                   {"IxGetBlobCount", "how many blobs there are"},
                   {"IxGetnBlobArea", "pixels of each blob"},
                   {"IxGetnBlobBound", "upright box of each blob"},
                   {"IxGetnBlobGrayMean", "mean grey of each blob"},
                   {"IxGetnRegionGrayMean", "mean grey of the region"},
                   {"IxComputeAllBlobFeature", "one record of features a blob, all selected"},
                   {"IxSelectBlobArea", "keeps blobs by area"},
                   {"IxSelectBlobWidth", "keeps blobs by the turned rectangle's width"},
                   {"IxSelectBlobHeight", "keeps blobs by the turned rectangle's height"},
                   {"IxLocateBlobCenter", "keeps blobs by their centre"},
                   {"IxGetSelectBlobCount", "how many blobs are kept"},
                   {"IxGetBlobList", "the records of the blobs that are kept"}},
       .run = FindBlobs,
       .prepare = Make<BlobFinder>},
  };
}

}  // namespace quillon::kit
