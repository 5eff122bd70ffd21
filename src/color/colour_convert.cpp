#include "color/colour_convert.h"

#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {

void ConvertByColourTables(const Kernels& kernels, const ColourImage& source, ColourImage& result,
                           const uint8_t* table0, const uint8_t* table1, const uint8_t* table2) {
  if (!RecreateForOverwrite(result, source.width, source.height)) return;
  for (int y = source.height - 1; y >= 0; --y) {
    kernels.colour.ConvertRow(source.rows[y], result.rows[y], source.width, table0, table1, table2);
  }
}

void CopyChannel(const Kernels& kernels, const ColourImage& source, GreyImage& result,
                 int channel) {
  if (channel < 0 || channel > 2) {
    RecreateZeroed(result, source.width, source.height);
    return;
  }
  if (!RecreateForOverwrite(result, source.width, source.height)) return;
  for (int y = source.height - 1; y >= 0; --y) {
    kernels.colour.ChannelRow(source.rows[y], result.rows[y], source.width, channel);
  }
}

}  // namespace quillon
