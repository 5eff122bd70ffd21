#include "color/colour_tables.h"

#include <bit>

#include "color/colour_formulas.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

// Single precision fills the rows; the exact formula settles what it leaves in doubt.
void BuildTables(void (*fillRow)(int, int, ColourRow&), ColourEntry (*exact)(int, int, int),
                 uint8_t* table0, uint8_t* table1, uint8_t* table2) {
  for (int b2 = 0; b2 < 256; ++b2) {
    for (int b1 = 0; b1 < 256; ++b1) {
      const ptrdiff_t first = (b2 * 256 + b1) * ptrdiff_t{kColourRow};
      ColourRow row = {{table0 + first, table1 + first, table2 + first}, {}};
      fillRow(b1, b2, row);
      for (int word = 0; word < kColourRow / 64; ++word) {
        for (uint64_t doubt = row.doubt[word]; doubt != 0; doubt &= doubt - 1) {
          const int b0 = 64 * word + std::countr_zero(doubt);
          const ColourEntry entry = exact(b0, b1, b2);
          for (int c = 0; c < 3; ++c) row.channel[c][b0] = entry.channel[c];
        }
      }
    }
  }
}

}  // namespace

void BuildHsiTables(const Kernels& kernels, uint8_t* hue, uint8_t* saturation, uint8_t* intensity) {
  BuildTables(kernels.colour.HsiRow, HsiOf, hue, saturation, intensity);
}

void BuildLabTables(const Kernels& kernels, uint8_t* lightness, uint8_t* a, uint8_t* b) {
  BuildTables(kernels.colour.LabRow, LabOf, lightness, a, b);
}

}  // namespace quillon
