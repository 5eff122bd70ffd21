// Numbers of several bytes in a file.
#pragma once

#include "kit/images/raster.h"

namespace quillon::kit {

// Reads at any place in the file, in either order of bytes; throws Unreadable behind its end.
class Fields {
 public:
  enum class Order { kLeastFirst, kGreatestFirst };

  Fields(Bytes file, Order order) : file_(file), isLeastFirst_(order == Order::kLeastFirst) {}

  unsigned At8(size_t at) const {
    Require(at, 1);
    return file_[at];
  }
  unsigned At16(size_t at) const {
    Require(at, 2);
    return isLeastFirst_ ? file_[at] | file_[at + 1] << 8 : file_[at] << 8 | file_[at + 1];
  }
  uint32_t At32(size_t at) const {
    const uint32_t first = At16(at), second = At16(at + 2);
    return isLeastFirst_ ? first | second << 16 : first << 16 | second;
  }
  Bytes Part(size_t at, size_t size) const {
    Require(at, size);
    return file_.subspan(at, size);
  }
  size_t Size() const { return file_.size(); }
  bool IsLeastFirst() const { return isLeastFirst_; }

 private:
  void Require(size_t at, size_t size) const {
    if (at > file_.size() || size > file_.size() - at) {
      throw Unreadable("it ends too early: after " + std::to_string(file_.size()) + " bytes");
    }
  }

  Bytes file_;
  bool isLeastFirst_;
};

}  // namespace quillon::kit
