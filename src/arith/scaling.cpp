#include "arith/scaling.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "arith/scaling_kernels.h"
#include "core/buffer.h"
#include "core/image_access.h"
#include "simd/kernels.h"

namespace quillon {
namespace {

constexpr int kMaxSide = 32767;

// The length of a scaled side, or 0 where there is none.
int ScaledSide(int side, double scale) {
  if (!std::isfinite(scale) || scale <= 0) return 0;
  const double length = side * scale + 0.5;
  return length < kMaxSide + 1 ? static_cast<int>(length) : 0;
}

// The source's column or row of each of the result's.
Buffer<int32_t> NearestPlaces(int count, int side, double scale) {
  Buffer<int32_t> places(static_cast<size_t>(count));
  if (!places) return places;
  for (int i = 0; i < count; ++i) {
    places[i] = static_cast<int32_t>(std::min((i + 0.5) / scale, side - 1.0));
  }
  return places;
}

// Columns rise, so the first and the last bound the others.
ColumnGroup MakeGroup(const int32_t* columns, int width) {
  ColumnGroup group = {};
  const int windows = (columns[kGroup - 1] - columns[0]) / kGroup + 1;
  if (windows > kMaxWindows || windows * kGroup > width) return group;
  group.windows = windows;
  group.start = std::min(columns[0], width - windows * kGroup);
  for (int i = 0; i < kGroup; ++i) group.places[i] = static_cast<uint8_t>(columns[i] - group.start);
  return group;
}

Buffer<ColumnGroup> MakeGroups(const Buffer<int32_t>& columns, int width) {
  const int count = static_cast<int>(columns.size());
  Buffer<ColumnGroup> groups(static_cast<size_t>((count + kGroup - 1) / kGroup));
  if (!groups || count < kGroup) return groups;
  for (size_t g = 0; g < groups.size(); ++g) {
    const int first = std::min(static_cast<int>(g) * kGroup, count - kGroup);
    groups[g] = MakeGroup(columns.data() + first, width);
  }
  return groups;
}

struct WideGroups {
  Buffer<WideColumnGroup> groups;  // none where the pixels of one lie too far apart
  int window;
};

WideGroups MakeWideGroups(const Buffer<int32_t>& columns, int width) {
  const int count = static_cast<int>(columns.size());
  if (count < kWideGroup) return {};
  const int groupCount = (count + kWideGroup - 1) / kWideGroup;
  const auto columnsOf = [&](int g) {
    return columns.data() + std::min(g * kWideGroup, count - kWideGroup);
  };
  int longest = 0;
  for (int g = 0; g < groupCount; ++g) {
    longest = std::max(longest, columnsOf(g)[kWideGroup - 1] - columnsOf(g)[0] + 1);
  }
  const int* window = std::lower_bound(std::begin(kWideWindows), std::end(kWideWindows), longest);
  if (window == std::end(kWideWindows) || *window > width) return {};
  WideGroups wide = {Buffer<WideColumnGroup>(static_cast<size_t>(groupCount)), *window};
  for (int g = 0; wide.groups && g < groupCount; ++g) {
    WideColumnGroup& group = wide.groups[g];
    group.start = std::min(columnsOf(g)[0], width - wide.window);
    for (int i = 0; i < kWideGroup; ++i) {
      group.places[i] = static_cast<uint8_t>(columnsOf(g)[i] - group.start);
    }
  }
  return wide;
}

}  // namespace

void ScaleImage(const Kernels& kernels, const GreyImage& source, GreyImage& result, double scaleX,
                double scaleY) {
  const int width = ScaledSide(source.width, scaleX), height = ScaledSide(source.height, scaleY);
  if (width == 0 || height == 0) return;
  if (&result == &source) {
    GreyImage scaled;
    ScaleImage(kernels, source, scaled, scaleX, scaleY);
    if (HasPixels(&scaled)) SwapPixels(result, scaled);
    return;
  }
  const auto columns = NearestPlaces(width, source.width, scaleX);
  const auto rows = NearestPlaces(height, source.height, scaleY);
  if (!columns || !rows) return;
  const ScalingKernels& scaling = kernels.scaling;
  WideGroups wide = {};
  if (scaling.PickWideRow) wide = MakeWideGroups(columns, source.width);
  Buffer<ColumnGroup> groups;
  if (!wide.groups) groups = MakeGroups(columns, source.width);
  if ((!wide.groups && !groups) || !RecreateForOverwrite(result, width, height)) return;
  const auto pickRow = [&](const uint8_t* from, uint8_t* to) {
    if (scaleX != 0.5) {
      if (wide.groups) {
        return scaling.PickWideRow(from, to, width, wide.groups.data(), wide.window);
      }
      return scaling.PickRow(from, to, width, columns.data(), groups.data());
    }
    // (x + 1/2) / (1/2) = 2 x + 1, which the last column of an odd width does not have.
    scaling.PickOddRow(from, to, source.width / 2);
    to[width - 1] = from[columns[width - 1]];
  };
  for (int y = height - 1; y >= 0; --y) {  // in the order of memory
    if (y < height - 1 && rows[y] == rows[y + 1]) {
      std::memcpy(result.rows[y], result.rows[y + 1], static_cast<size_t>(width));
    } else {
      pickRow(source.rows[rows[y]], result.rows[y]);
    }
  }
}

}  // namespace quillon
