// Pictures as the bytes that a page carries.
#pragma once

#include <vector>

#include "kit/report/report.h"

namespace quillon::kit {

struct PictureFile {
  std::vector<unsigned char> bytes;
  const char* type;   // "image/png", "image/jpeg"
  int reduction = 1;  // pixels of the picture across one of the file
};

// Exact (PNG) where that takes little room, as pictures of few greys do; else JPEG, reduced until
// it takes no more than `most` bytes. Throws OutOfMemory.
PictureFile Pack(const Picture& picture, size_t most);

// A small JPEG of the picture that is no larger than this. Throws OutOfMemory.
std::vector<unsigned char> Thumbnail(const Picture& picture, int width, int height);

}  // namespace quillon::kit
