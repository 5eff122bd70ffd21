// The kernels that find runs of pixels and sum up what lies in them.
#pragma once

#include <stdint.h>

#include "simd/families.h"

namespace quillon {

struct ChannelSum {
  uint64_t lanes[8];
};

struct RunsKernels {
  // Where the row of `count` pixels enters and leaves the band of values `first` ... `first + span`
  // modulo 256: run k is edges[2k] ... edges[2k + 1] - 1. Returns the number of runs. There is room
  // for count + 1 edges.
  int (*FindRuns)(const uint8_t* row, int count, uint8_t first, uint8_t span, int32_t* edges);
  // Adds the bytes of `count` pixels of one channel, or of three, to the channels' sums. A sum is
  // spread over lanes: summed up once, at the end.
  void (*AddRow)(const uint8_t* row, int count, ChannelSum& sum);
  void (*AddColourRow)(const uint8_t* row, int count, ChannelSum (&sums)[3]);
};

}  // namespace quillon
