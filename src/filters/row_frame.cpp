#include "filters/row_frame.h"

#include <algorithm>

#include "core/image_access.h"

namespace quillon {

SourceRows::SourceRows(const GreyImage& source, const GreyImage& result, int columns, int kept)
    : source_(source),
      copies_(&source == &result || columns > source.stride),
      columns_(columns),
      kept_(kept),
      pitch_((static_cast<size_t>(columns) + Buffer<uint8_t>::kAlignment - 1) /
             Buffer<uint8_t>::kAlignment * Buffer<uint8_t>::kAlignment) {
  if (copies_) ring_ = Buffer<uint8_t>::Zeroed(pitch_ * static_cast<size_t>(kept));
}

void SourceRows::ReadTo(int y) {
  if (!copies_) return;
  const auto bytes = static_cast<size_t>(std::min(columns_, source_.stride));
  for (; read_ <= y; ++read_) {
    std::memcpy(ring_.data() + static_cast<size_t>(read_ % kept_) * pitch_, source_.rows[read_],
                bytes);
  }
}

bool PrepareResult(const GreyImage& source, GreyImage& result) {
  return &source == &result || RecreateForOverwrite(result, source.width, source.height);
}

void CopyUnchanged(const GreyImage& source, GreyImage& result) {
  if (&source == &result || !PrepareResult(source, result)) return;
  for (int y = 0; y < source.height; ++y) {
    std::memcpy(result.rows[y], source.rows[y], static_cast<size_t>(source.width));
  }
}

void CopyBorderRows(GreyImage& result, int radius) {
  const int last = result.height - 1;
  const auto bytes = static_cast<size_t>(result.width);
  for (int i = 0; i < radius; ++i) {
    std::memcpy(result.rows[i], result.rows[radius], bytes);
    std::memcpy(result.rows[last - i], result.rows[last - radius], bytes);
  }
}

}  // namespace quillon
