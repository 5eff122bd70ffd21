#include "color/colour_convert.h"

#include "color/colour_kernels.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {

bool ConvertByColourTables(const Kernels& kernels, const ColourImage& source, ColourImage& result,
                           const uint8_t* table0, const uint8_t* table1, const uint8_t* table2) {
  if (!RecreateForOverwrite(result, source.width, source.height)) return false;
  for (int y = source.height - 1; y >= 0; --y) {
    kernels.colour.ConvertRow(source.rows[y], result.rows[y], source.width, table0, table1, table2);
  }
  return true;
}

bool CopyChannel(const Kernels& kernels, const ColourImage& source, GreyImage& result,
                 int channel) {
  if (channel < 0 || channel > 2) {
    return RecreateZeroed(result, source.width, source.height);
  }
  if (!RecreateForOverwrite(result, source.width, source.height)) return false;
  for (int y = source.height - 1; y >= 0; --y) {
    kernels.colour.ChannelRow(source.rows[y], result.rows[y], source.width, channel);
  }
  return true;
}

}  // namespace quillon
