// Lookup tables of every colour in HSI and CIE L*a*b*, a byte a channel.
#pragma once

#include <cstdint>

namespace quillon {

struct Kernels;

constexpr uint32_t kColours = 1u << 24;  // entry b0 + 256 b1 + 65536 b2

// Each fills three tables of kColours bytes.
void BuildHsiTables(uint8_t* hue, uint8_t* saturation, uint8_t* intensity);
void BuildLabTables(const Kernels& kernels, uint8_t* lightness, uint8_t* a, uint8_t* b);

}  // namespace quillon
