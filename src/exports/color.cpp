// Exports: colour spaces. The Lab names of the last three are second names in quillon.def.
#include "color/colour_convert.h"
#include "color/colour_tables.h"
#include "exports/guards.h"

namespace quillon {

uint8_t IxCreateCToHSI(uint8_t* hue, uint8_t* saturation, uint8_t* intensity) {
  if (!hue || !saturation || !intensity) return 0;
  BuildHsiTables(hue, saturation, intensity);
  return 1;
}

uint8_t IxCreateCToLab(uint8_t* lightness, uint8_t* a, uint8_t* b) {
  if (!lightness || !a || !b) return 0;
  BuildLabTables(BestKernels(), lightness, a, b);
  return 1;
}

uint8_t IxColorToHSI(const ColourImage* source, ColourImage* result, const uint8_t* table0,
                     const uint8_t* table1, const uint8_t* table2) {
  if (!table0 || !table1 || !table2 || !result) return 0;
  if (source && source->bitmap && source->bpp <= 8) return 1;
  if (!HasPixels(source)) return 0;
  return ConvertByColourTables(BestKernels(), *source, *result, table0, table1, table2);
}

uint8_t IxGetHSI(const ColourImage* source, GreyImage* result, int channel) {
  return HasPixels(source) && result && CopyChannel(BestKernels(), *source, *result, channel);
}

uint8_t IxGetHSIPoint(const ColourImage* image, int x, int y, uint8_t* channels) {
  if (!HasPixels(image) || !channels || x < 0 || x >= image->width || y < 0 || y >= image->height) {
    return 0;
  }
  for (int c = 0; c < 3; ++c) channels[c] = image->rows[y][3 * x + c];
  return 1;
}

}  // namespace quillon
