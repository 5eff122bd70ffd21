// A list that grows. The library builds without exceptions: Add says whether there was memory.
#pragma once

#include <algorithm>
#include <utility>

#include "core/buffer.h"

namespace quillon::finder {

template <class T>
class List {
 public:
  bool Add(const T& value) {
    if (size_ == room_.size() && !Reserve(std::max<size_t>(16, 2 * size_))) return false;
    room_[size_++] = value;
    return true;
  }
  bool Reserve(size_t count) {
    if (count <= room_.size()) return true;
    Buffer<T> larger(count);
    if (!larger) return false;
    std::copy(begin(), end(), larger.begin());
    room_ = std::move(larger);
    return true;
  }
  // Drops the last ones; a larger count changes nothing.
  void Shrink(size_t count) { size_ = std::min(size_, count); }
  void Clear() { size_ = 0; }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T* data() { return room_.data(); }
  const T* data() const { return room_.data(); }
  T& operator[](size_t i) { return room_[i]; }
  const T& operator[](size_t i) const { return room_[i]; }
  T* begin() { return room_.data(); }
  T* end() { return room_.data() + size_; }
  const T* begin() const { return room_.data(); }
  const T* end() const { return room_.data() + size_; }

 private:
  Buffer<T> room_;
  size_t size_ = 0;
};

}  // namespace quillon::finder
