// Numbers with a fraction as text, in the same digits on every system and in every language.
#pragma once

#include <string>

namespace quillon::kit {

// The fewest digits that read back as the same number, with an exponent where that is shorter.
std::string ShortestDigits(float value);
std::string ShortestDigits(double value);

// Reads the number that the text begins with. Returns where it ends; null, with the value as it
// was, where no number stands or it is out of range.
const char* ReadNumber(const char* text, const char* end, double& value);

}  // namespace quillon::kit
