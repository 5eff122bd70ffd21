// PGM and PPM files: P2 and P3 in digits, P5 and P6 in bytes or, where the maximum is above 255, in
// two bytes, the greater one first.
#include <algorithm>
#include <optional>

#include "kit/images/raster.h"

namespace quillon::kit {
namespace {

bool IsSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Numbers in digits, between them white space and comments.
class Numbers {
 public:
  explicit Numbers(Bytes text) : text_(text) {}

  // Nothing at the end of the text and before what is no digit; throws for more than `most`.
  std::optional<int> Next(int most, const char* what) {
    SkipSpace();
    if (at_ == text_.size() || !IsDigit()) return {};
    int64_t number = 0;
    for (; at_ < text_.size() && IsDigit(); ++at_) {
      number = std::min<int64_t>(number * 10 + (text_[at_] - '0'), INT32_MAX);
    }
    if (number > most) {
      throw Unreadable(what + std::string(" is ") + std::to_string(number) + ", beyond " +
                       std::to_string(most));
    }
    return static_cast<int>(number);
  }

  // Behind what was read; the white space that ends a header is one byte.
  Bytes Rest() const { return text_.subspan(at_); }

 private:
  bool IsDigit() const { return text_[at_] >= '0' && text_[at_] <= '9'; }
  void SkipSpace() {
    for (; at_ < text_.size(); ++at_) {
      if (text_[at_] == '#') {
        while (at_ + 1 < text_.size() && text_[at_] != '\n' && text_[at_] != '\r') ++at_;
      } else if (!IsSpace(text_[at_])) {
        return;
      }
    }
  }

  Bytes text_;
  size_t at_ = 0;
};

int Header(Numbers& numbers, int most, const char* what) {
  const std::optional<int> number = numbers.Next(most, what);
  if (!number) throw Unreadable(what + std::string(" is missing in its header"));
  return *number;
}

void Store(Raster& raster, size_t index, int value) {
  if (raster.isWide) {
    raster.Wide()[index] = static_cast<uint16_t>(value);
  } else {
    raster.samples.get()[index] = static_cast<unsigned char>(value);
  }
}

}  // namespace

Raster DecodePnm(Bytes file, int64_t maxPixels) {
  const unsigned char kind = file[1];
  const bool isText = kind == '2' || kind == '3';
  Numbers numbers(file.subspan(2));
  Raster raster;
  raster.isColour = kind == '3' || kind == '6';
  raster.width = Header(numbers, INT32_MAX, "its width");
  raster.height = Header(numbers, INT32_MAX, "its height");
  RequireSize(raster.width, raster.height, maxPixels);
  raster.white = Header(numbers, 65535, "its maximum");
  if (raster.white == 0) throw Unreadable("its maximum is 0");
  raster.isWide = raster.white > 255;

  const int64_t count = int64_t{raster.width} * raster.height * raster.Colours();
  if (isText) {
    RequireRoom(raster.width, raster.height, 2 * count, static_cast<int64_t>(numbers.Rest().size()),
                file);
    AllocateSamples(raster);
    for (int64_t i = 0; i < count; ++i) {
      const std::optional<int> sample = numbers.Next(raster.white, "a sample");
      if (!sample) {
        throw Unreadable("it ends after " + std::to_string(i) + " of " + std::to_string(count) +
                         " samples");
      }
      Store(raster, static_cast<size_t>(i), *sample);
    }
    return raster;
  }
  Bytes rest = numbers.Rest();
  if (rest.empty() || !IsSpace(rest[0])) throw Unreadable("no white space ends its header");
  rest = rest.subspan(1);
  RequireRoom(raster.width, raster.height, raster.isWide ? 2 * count : count,
              static_cast<int64_t>(rest.size()), file);
  AllocateSamples(raster);
  if (!raster.isWide) {
    std::copy_n(rest.begin(), count, raster.samples.get());
    return raster;
  }
  for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
    raster.Wide()[i] = static_cast<uint16_t>(rest[2 * i] << 8 | rest[2 * i + 1]);
  }
  return raster;
}

}  // namespace quillon::kit
