// The template matching tool: a template's pyramid, its care masks, what matching needs to know of
// them, and the results of the last search.
#pragma once

#include <array>
#include <cstdint>

#include "core/buffer.h"
#include "pyramid/pyramid.h"
#include "quillon/records.h"

namespace quillon {

// One level of a template: one plane of a grey template, three of a colour one.
struct NccLevel {
  int height = 0, width = 0;
  uint32_t count = 0;               // values in the statistics: all planes, care pixels only
  double mean = 0, deviation = 0;   // deviation: the sum of squared distances from the mean
  double centreX = 0, centreY = 0;  // half of width and height
  int planes = 0;                   // 0 while nothing is allocated
  Buffer<uint8_t> pixels;           // plane after plane, rows packed
  Buffer<uint8_t*> rows;            // `height` rows of each plane

  uint8_t* const* Plane(int plane) const {
    return rows.data() + static_cast<ptrdiff_t>(plane) * height;
  }
};

struct MaskRun {
  int first, last, y;  // columns, both included
};

// Which pixels of a level take part.
struct NccMask {
  int width = 0, height = 0;
  uint32_t careCount = 0;
  Buffer<MaskRun> runs;    // of care pixels, row by row, left to right
  Buffer<uint8_t> pixels;  // 0 = care, anything else = not
  Buffer<uint8_t*> rows;
};

enum class ModelKind { kNone = 0, kGrey = 1, kColour = 2 };

constexpr int kMaxNccResults = 500;

}  // namespace quillon

// Opaque to the host, which knows it by this name.
struct quillon::NccTool {
  std::array<NccLevel, kMaxPyramidLevel + 1> levels;
  std::array<NccMask, kMaxPyramidLevel + 1> masks;  // filled while maskEnabled
  quillon::Buffer<uint8_t> packed;  // of a colour model, its template's rows as images hold them
  std::array<NccResult, kMaxNccResults> results = {};
  int resultCount = 0;
  int maxResults = 0;         // of the last search, after its limits
  int candidateCapacity = 0;  // of the last search
  int currentLevel = 0;       // where a search starts
  int defaultLevel = 0;       // the coarsest level of the model
  ModelKind kind = ModelKind::kNone;
  bool maskEnabled = false;
};
