// The normalised correlation of an image I with a template T over n paired values:
//
//   (sum(I T) - n mean(I) mean(T)) / sqrt(dev(I) dev(T)),   dev(I) = sum(I^2) - n mean(I)^2
//
// from integer sums; -1 to 1, and exactly 1 for a copy of the template.
#pragma once

#include <cstdint>

#include "ncc/tool.h"
#include "quillon/image.h"

namespace quillon {

struct Kernels;

struct PixelSums {
  uint64_t image = 0;         // sum of I
  uint64_t imageSquared = 0;  // sum of I * I
  uint64_t products = 0;      // sum of I * T
};

// Adds `count` pairs to the sums.
void AddProducts(const Kernels& kernels, const uint8_t* image, const uint8_t* pattern, int count,
                 PixelSums& sums);

// The number of pairs times two means. Everything that subtracts it from a sum of products
// multiplies in this order: the three rounded products of an exact copy are then the same number.
inline double TimesMeans(double count, double mean, double otherMean) {
  return count * mean * otherMean;
}

// The sum of squared distances from the mean.
inline double DeviationOf(uint64_t squared, double count, double mean) {
  return static_cast<double>(squared) - TimesMeans(count, mean, mean);
}

// The correlation; 0 when the image's deviation is at most `flat`. A template without deviation
// gives a value that is not finite.
double Correlation(const PixelSums& sums, uint32_t count, double templateMean,
                   double templateDeviation, double flat);

// The correlation of a colour image of the template's size with level 0 of the tool, over all
// values of the three planes, with the level's mean and deviation even where a mask made those from
// fewer; 0 when sizes differ, the model is not a colour model, or memory is short.
double ScoreOnePosition(const Kernels& kernels, const ColourImage& image, const NccTool& tool);

}  // namespace quillon
