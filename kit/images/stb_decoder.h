// The system's small decoder of PNG and JPEG, and of the compression that PNG and TIFF share. It
// believes what a file says; so its callers look at the file first.
#pragma once

#include "kit/images/raster.h"

namespace quillon::kit {

// The picture of a file whose header said its size; throws Unreadable for anything else.
Raster DecodeByStb(Bytes file, int width, int height, bool isWide);

// Unpacks a zlib stream into the memory given; returns how many bytes were written, or throws
// Unreadable when there are more, or the stream is damaged.
size_t Inflate(Bytes stream, std::span<unsigned char> unpacked);

}  // namespace quillon::kit
