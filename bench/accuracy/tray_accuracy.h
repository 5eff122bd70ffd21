// How well a recipe measures brackets on drawn trays, in millimetres, through a bent lens.
#pragma once

#include <cstdint>
#include <string>

namespace quillon::accuracy {

// Prints the table of 200 trays before ten cameras; `example` is the recipe's file. False where one
// value is farther from what was drawn than it may be.
bool PrintTrays(uint64_t seed, const std::string& example);

}  // namespace quillon::accuracy
