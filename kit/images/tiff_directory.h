// The list of fields by which a TIFF file describes its picture, and a JPEG or PNG file how it was
// held.
#pragma once

#include <vector>

#include "kit/images/fields.h"

namespace quillon::kit {

enum class TiffTag : unsigned {
  kWidth = 256,
  kHeight = 257,
  kBits = 258,
  kCompression = 259,
  kPhotometric = 262,
  kFillOrder = 266,
  kStripOffsets = 273,
  kOrientation = 274,
  kSamplesAPixel = 277,
  kRowsAStrip = 278,
  kStripSizes = 279,
  kMaxSampleValue = 281,
  kPlanes = 284,
  kPredictor = 317,
  kColourMap = 320,
  kTileWidth = 322,
  kTileHeight = 323,
  kTileOffsets = 324,
  kTileSizes = 325,
  kExtraSamples = 338,
  kSampleFormat = 339,
};

// The first directory of a file that begins with II or MM.
class TiffDirectory {
 public:
  explicit TiffDirectory(Bytes file);  // throws Unreadable

  // Whole numbers, none where the field is missing or holds something else.
  std::vector<uint32_t> Values(TiffTag tag) const;
  uint32_t Value(TiffTag tag, uint32_t otherwise) const;

  const Fields& File() const { return file_; }
  bool HasMore() const { return hasMore_; }  // pages

 private:
  Fields file_;
  size_t first_ = 0;  // entry
  unsigned count_ = 0;
  bool hasMore_ = false;
};

// Of an EXIF block, which is a TIFF file without a picture; 1 where it says nothing or is damaged.
int OrientationOf(Bytes exif);

}  // namespace quillon::kit
