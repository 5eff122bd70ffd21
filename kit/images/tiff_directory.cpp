#include "kit/images/tiff_directory.h"

namespace quillon::kit {
namespace {

constexpr size_t kEntry = 12;

Fields::Order OrderOf(Bytes file) {
  return !file.empty() && file[0] == 'I' ? Fields::Order::kLeastFirst
                                         : Fields::Order::kGreatestFirst;
}

}  // namespace

TiffDirectory::TiffDirectory(Bytes file) : file_(file, OrderOf(file)) {
  if (file_.At16(2) == 43) throw Unreadable("it is a BigTIFF file, which is not read");
  if (file_.At16(2) != 42) throw Unreadable("it is no TIFF file");
  const size_t at = file_.At32(4);
  count_ = file_.At16(at);
  first_ = at + 2;
  hasMore_ = file_.At32(first_ + count_ * kEntry) != 0;
}

std::vector<uint32_t> TiffDirectory::Values(TiffTag tag) const {
  for (unsigned i = 0; i < count_; ++i) {
    const size_t entry = first_ + i * kEntry;
    if (file_.At16(entry) != static_cast<unsigned>(tag)) continue;
    const unsigned type = file_.At16(entry + 2);
    const size_t size = type == 1 ? 1 : type == 3 ? 2 : type == 4 ? 4 : 0;
    const size_t count = file_.At32(entry + 4);
    if (size == 0 || count > file_.Size()) return {};
    const size_t at = size * count <= 4 ? entry + 8 : file_.At32(entry + 8);
    file_.Part(at, size * count);  // before memory is taken for them
    std::vector<uint32_t> values;
    values.reserve(count);
    for (size_t k = 0; k < count; ++k) {
      const size_t place = at + k * size;
      values.push_back(size == 1   ? file_.At8(place)
                       : size == 2 ? file_.At16(place)
                                   : file_.At32(place));
    }
    return values;
  }
  return {};
}

uint32_t TiffDirectory::Value(TiffTag tag, uint32_t otherwise) const {
  const std::vector<uint32_t> values = Values(tag);
  return values.empty() ? otherwise : values.front();
}

int OrientationOf(Bytes exif) {
  try {
    const uint32_t value = TiffDirectory(exif).Value(TiffTag::kOrientation, 1);
    return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
  } catch (const Unreadable&) {  // what surrounds a picture does not make it unreadable
    return 1;
  }
}

}  // namespace quillon::kit
