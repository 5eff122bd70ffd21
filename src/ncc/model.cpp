#include "ncc/model.h"

#include <cstring>

#include "core/grey_kernels.h"
#include "core/image_access.h"
#include "ncc/correlation.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

bool AllocateRows(int width, int height, int planes, Buffer<uint8_t>& pixels,
                  Buffer<uint8_t*>& rows) {
  const size_t rowCount = static_cast<size_t>(height) * planes;
  pixels = Buffer<uint8_t>(rowCount * width);
  rows = Buffer<uint8_t*>(rowCount);
  if (!pixels || !rows) return false;
  for (size_t i = 0; i < rowCount; ++i) rows[i] = pixels.data() + i * width;
  return true;
}

bool AllocateLevel(int width, int height, int planes, NccLevel& level) {
  level = {};
  if (!AllocateRows(width, height, planes, level.pixels, level.rows)) return false;
  level.width = width;
  level.height = height;
  level.planes = planes;
  level.centreX = width * 0.5;
  level.centreY = height * 0.5;
  return true;
}

// The template's pixels into the full level; those of a colour template as they are, too.
bool CopyTemplate(const Kernels&, const GreyImage& image, NccTool& tool) {
  NccLevel& level = tool.levels[0];
  if (!AllocateLevel(image.width, image.height, 1, level)) return false;
  for (int y = 0; y < level.height; ++y) {
    std::memcpy(level.Plane(0)[y], image.rows[y], static_cast<size_t>(level.width));
  }
  return true;
}

bool CopyTemplate(const Kernels& kernels, const ColourImage& image, NccTool& tool) {
  NccLevel& level = tool.levels[0];
  const size_t rowBytes = 3 * static_cast<size_t>(image.width);
  tool.packed = Buffer<uint8_t>(rowBytes * static_cast<size_t>(image.height));
  if (!tool.packed || !AllocateLevel(image.width, image.height, 3, level)) return false;
  for (int y = 0; y < level.height; ++y) {
    std::memcpy(tool.packed.data() + rowBytes * static_cast<size_t>(y), image.rows[y], rowBytes);
    kernels.grey.SplitRow(image.rows[y], level.Plane(0)[y], level.Plane(1)[y], level.Plane(2)[y],
                          level.width);
  }
  return true;
}

// Calls visit(first, last, y) for every run of zero bytes.
template <class Visitor>
void ForEachCareRun(const NccMask& mask, Visitor&& visit) {
  for (int y = 0; y < mask.height; ++y) {
    const uint8_t* row = mask.rows[y];
    for (int x = 0; x < mask.width; ++x) {
      if (row[x] != 0) continue;
      const int first = x;
      while (x < mask.width && row[x] == 0) ++x;
      visit(first, x - 1, y);
    }
  }
}

bool CollectRuns(NccMask& mask) {
  size_t count = 0;
  mask.careCount = 0;
  ForEachCareRun(mask, [&](int first, int last, int) {
    ++count;
    mask.careCount += static_cast<uint32_t>(last - first + 1);
  });
  mask.runs = Buffer<MaskRun>(count);
  if (!mask.runs) return false;
  MaskRun* next = mask.runs.data();
  ForEachCareRun(mask, [&](int first, int last, int y) { *next++ = {first, last, y}; });
  return true;
}

bool AllocateMask(int width, int height, NccMask& mask) {
  mask = {};
  if (!AllocateRows(width, height, 1, mask.pixels, mask.rows)) return false;
  mask.width = width;
  mask.height = height;
  return true;
}

// Care where any plane of the template is not 0.
bool MaskFromTemplate(const NccLevel& level, NccMask& mask) {
  if (!AllocateMask(level.width, level.height, mask)) return false;
  const size_t size = static_cast<size_t>(level.width) * level.height;
  for (size_t i = 0; i < size; ++i) {
    int any = 0;
    for (int plane = 0; plane < level.planes; ++plane) any |= level.pixels[plane * size + i];
    mask.pixels[i] = any ? 0 : 255;
  }
  return CollectRuns(mask);
}

// A mask is reduced as a picture is: a pixel cares when its block's mean truncates to 0. At levels
// 4 to 6 that lets a few careless pixels pass, and matching has been tuned with it.
bool ReduceMask(const Kernels& kernels, int level, const NccMask& full, NccMask& mask) {
  if (!AllocateMask(ReducedSize(full.width, level), ReducedSize(full.height, level), mask)) {
    return false;
  }
  ReduceByBlockMean(kernels, level, full.rows.data(), full.width, full.height, mask.rows.data());
  return CollectRuns(mask);
}

bool ReduceLevel(const Kernels& kernels, int level, const NccLevel& full, NccLevel& reduced) {
  if (!AllocateLevel(ReducedSize(full.width, level), ReducedSize(full.height, level), full.planes,
                     reduced)) {
    return false;
  }
  for (int plane = 0; plane < full.planes; ++plane) {
    ReduceByBlockMean(kernels, level, full.Plane(plane), full.width, full.height,
                      reduced.Plane(plane));
  }
  return true;
}

// Over the care runs, or over everything without a mask. An empty mask has no mean: not a number.
void ComputeStatistics(const Kernels& kernels, const NccMask* mask, NccLevel& level) {
  PixelSums sums;
  for (int plane = 0; plane < level.planes; ++plane) {
    uint8_t* const* rows = level.Plane(plane);
    const auto add = [&](int first, int last, int y) {
      AddProducts(kernels, rows[y] + first, rows[y] + first, last - first + 1, sums);
    };
    if (mask) {
      for (const MaskRun& run : mask->runs) add(run.first, run.last, run.y);
    } else {
      for (int y = 0; y < level.height; ++y) add(0, level.width - 1, y);
    }
  }
  const uint32_t pixels =
      mask ? mask->careCount
           : static_cast<uint32_t>(level.width) * static_cast<uint32_t>(level.height);
  level.count = static_cast<uint32_t>(level.planes) * pixels;
  level.mean = static_cast<double>(sums.image) / level.count;
  level.deviation = DeviationOf(sums.imageSquared, level.count, level.mean);
}

}  // namespace

template <class Pixel>
bool BuildNccModel(const Kernels& kernels, const CImage<Pixel>& image, bool useMask,
                   NccTool& tool) {
  constexpr int kPlanes = sizeof(Pixel);
  tool.kind = ModelKind::kNone;
  tool.maskEnabled = useMask;
  if (!CopyTemplate(kernels, image, tool)) return false;
  const NccLevel& full = tool.levels[0];
  if (useMask && !MaskFromTemplate(full, tool.masks[0])) return false;
  const uint32_t pixels =
      useMask ? tool.masks[0].careCount
              : static_cast<uint32_t>(full.width) * static_cast<uint32_t>(full.height);
  const int coarsest = CoarsestLevel(pixels);
  tool.defaultLevel = tool.currentLevel = coarsest;
  for (int level = 1; level <= coarsest; ++level) {
    if (!ReduceLevel(kernels, level, full, tool.levels[level])) return false;
    if (useMask && !ReduceMask(kernels, level, tool.masks[0], tool.masks[level])) return false;
  }
  for (int level = 0; level <= coarsest; ++level) {
    ComputeStatistics(kernels, useMask ? &tool.masks[level] : nullptr, tool.levels[level]);
  }
  tool.kind = kPlanes == 1 ? ModelKind::kGrey : ModelKind::kColour;
  return true;
}

bool BuildSingleLevelModel(const Kernels& kernels, const ColourImage& image, NccTool& tool) {
  tool.kind = ModelKind::kNone;
  if (!CopyTemplate(kernels, image, tool)) return false;
  ComputeStatistics(kernels, nullptr, tool.levels[0]);
  tool.kind = ModelKind::kColour;
  return true;
}

template <class Pixel>
bool CopyModelLevel(const NccTool& tool, int level, CImage<Pixel>& result) {
  constexpr int kPlanes = sizeof(Pixel);
  const NccLevel& from = tool.levels[level];
  if (from.planes != 0 && from.planes != kPlanes) return false;
  if (!RecreateForOverwrite(result, from.width, from.height))
    return from.width == 0 || from.height == 0;
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < from.width; ++x) {
      for (int plane = 0; plane < kPlanes; ++plane) {
        result.rows[y][kPlanes * x + plane] = from.Plane(plane)[y][x];
      }
    }
  }
  return true;
}

template bool BuildNccModel(const Kernels&, const GreyImage&, bool, NccTool&);
template bool BuildNccModel(const Kernels&, const ColourImage&, bool, NccTool&);
template bool CopyModelLevel(const NccTool&, int, GreyImage&);
template bool CopyModelLevel(const NccTool&, int, ColourImage&);

}  // namespace quillon
