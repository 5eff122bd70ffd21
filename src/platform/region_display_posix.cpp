// The same bytes that Windows draws, computed here: other systems have nothing to draw with.
#include "core/image_access.h"
#include "platform/region_display.h"

namespace quillon {
namespace {

constexpr RGB_24 kRed = {.blue = 0, .green = 0, .red = 125};

// The image whose handle field was remembered.
const GreyImage* AssignedImage(const RLERegion& region) {
  const auto* field = reinterpret_cast<const unsigned char*>(region.assignedImage);
  return reinterpret_cast<const GreyImage*>(field - sizeof(void*));
}

void DrawLines(const RLERegion& region, const ColourImage& display) {
  for (int i = 0; region.roiRuns && i < region.roiRunCount; ++i) {
    const DrawnLine line = VisibleLine(region.roiRuns[i], display);
    auto* row = reinterpret_cast<RGB_24*>(display.rows[line.y]);
    for (int x = line.from; x < line.to; ++x) row[x] = kRed;
  }
}

void CombineImage(const GreyImage& image, const ColourImage& display) {
  const int width = image.width < display.width ? image.width : display.width;
  const int height = image.height < display.height ? image.height : display.height;
  for (int y = 0; y < height; ++y) {
    const uint8_t* grey = image.rows[y];
    uint8_t* colour = display.rows[y];
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 3; ++c) colour[3 * x + c] ^= grey[x];
    }
  }
}

}  // namespace

void DrawRegionDisplay(const RLERegion& region) {
  DrawLines(region, *region.displayImage);
  const GreyImage* image = AssignedImage(region);
  if (HasPixels(image) && image->bpp == 8) CombineImage(*image, *region.displayImage);
}

}  // namespace quillon
