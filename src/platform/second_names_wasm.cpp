// The second names of quillon.def. Elsewhere the linker gives them to the first names' functions;
// this platform's linker cannot, so they are functions that call those.
#include "quillon/quillon.h"

namespace quillon {

uint8_t QUILLON_CALL IxColorToLab(const ColourImage* source, ColourImage* result,
                                  const uint8_t* table0, const uint8_t* table1,
                                  const uint8_t* table2) {
  return IxColorToHSI(source, result, table0, table1, table2);
}

uint8_t QUILLON_CALL IxGetCIELab(const ColourImage* source, GreyImage* result, int channel) {
  return IxGetHSI(source, result, channel);
}

uint8_t QUILLON_CALL IxGetCIELabPoint(const ColourImage* image, int x, int y, uint8_t* channels) {
  return IxGetHSIPoint(image, x, y, channels);
}

}  // namespace quillon
