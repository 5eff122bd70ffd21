// Whether bytes are still those that were written.
#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace quillon::kit {

// FNV-1a, by G. Fowler, L. C. Noll and K.-P. Vo: it tells changes, it is no seal.
class Checksum {
 public:
  static constexpr size_t kDigits = 16;

  void Add(std::string_view bytes) {
    for (const char byte : bytes) {
      value_ ^= static_cast<unsigned char>(byte);
      value_ *= 0x100000001b3;
    }
  }

  // In hexadecimal digits.
  std::string Text() const {
    char text[kDigits + 1];
    std::snprintf(text, sizeof text, "%016" PRIx64, value_);
    return text;
  }

 private:
  uint64_t value_ = 0xcbf29ce484222325;
};

}  // namespace quillon::kit
