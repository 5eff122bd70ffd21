#include "kit/operations/exports.h"

#include <algorithm>
#include <cstring>

#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// What no operation calls: handles and accessors of use to programs, what makes parameter files,
// and what the command of blobs shows besides.
constexpr ListedExport kOthers[] = {
    {"colour", "IxGetHSIPoint", "", "the three channels of one pixel"},
    {"colour", "IxGetCIELabPoint", "", "a second name of IxGetHSIPoint"},
    {"calibration", "IxFFCParaBuild", "calibrate-flat-field", "gains for a target level"},
    {"calibration", "IxDistortionParaBuild", "calibrate-lens",
     "fits the bend of a lens to the points of a grid"},
    {"blobs", "IxImgAssignToRegion", "", "the image over which a region is displayed"},
    {"blobs", "IxGetRegDisplay", "", "a bitmap of the region over its image"},
    {"blobs", "IxGetnBlobCenter", "", "mean column and row of each blob"},
    {"blobs", "IxGetBlobMinRect", "", "turned rectangle of least area of each blob"},
    {"blobs", "IxGetnBlobColorMean", "blobs", "mean colour of each blob"},
    {"blobs", "IxGetnRegionColorMean", "blobs", "mean colour of the region"},
    {"blobs", "IxReSelectBlob", "", "selects all blobs again"},
    {"matching", "IxGet_Pyramid_GrayImage", "", "a level of a grey template"},
    {"matching", "IxGet_Pyramid_ColorImage", "", "a level of a colour template"},
    {"matching", "IxCreateNCCMatchColorModel_ROI", "", "teach a colour template for one position"},
    {"matching", "IxFindNCCMatchColorModel_ROI", "",
     "the correlation of an image of the template's size"},
};

}  // namespace

const std::vector<ListedExport>& Exports() try {
  static const std::vector<ListedExport> exports = [] {
    std::vector<ListedExport> all;
    const auto& operations = Operations();
    for (auto first = operations.begin(); first != operations.end();) {
      const char* const family = first->family;
      for (; first != operations.end() && !std::strcmp(first->family, family); ++first) {
        if (first->exports.empty()) all.push_back({family, "", first->name, first->summary});
        for (const Export& row : first->exports) {
          all.push_back(
              {family, row.name, first->name, row.summary ? row.summary : first->summary});
        }
      }
      std::copy_if(std::begin(kOthers), std::end(kOthers), std::back_inserter(all),
                   [&](const ListedExport& row) { return !std::strcmp(row.family, family); });
    }
    return all;
  }();
  return exports;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the list of exports");
}

}  // namespace quillon::kit
