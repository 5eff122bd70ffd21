// Scratch memory that frees itself. The library builds without exceptions: test the buffer before
// use.
//
//   Buffer<uint8_t> ring(3 * width);
//   if (!ring) return;
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "quillon/memory_note.h"

namespace quillon {

// Notes for the host that an allocation failed.
inline void NoteLackOfMemory() { errno = kNoMemoryNote; }

// What was allocated; where that is nothing, it is noted.
template <class T>
T* OrNote(T* block) {
  if (!block) NoteLackOfMemory();
  return block;
}

template <class T>
class Buffer {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

 public:
  static constexpr size_t kAlignment = 64;  // a cache line, and the widest vector

  Buffer() = default;
  // Uninitialised; null when the memory is not there or the size does not fit.
  explicit Buffer(size_t count) {
    const size_t bytes = count > 0 ? count * sizeof(T) : 1;
    void* block = nullptr;
    if (count <= kMaxBytes / sizeof(T)) {
      block = ::operator new (bytes, std::align_val_t{kAlignment}, std::nothrow);
    }
    data_ = static_cast<T*>(OrNote(block));
    if (data_) size_ = count;
  }
  static Buffer Zeroed(size_t count) {
    Buffer buffer(count);
    if (buffer) std::memset(buffer.data_, 0, count * sizeof(T));
    return buffer;
  }
  ~Buffer() { ::operator delete (data_, std::align_val_t{kAlignment}); }
  Buffer(Buffer&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  Buffer& operator=(Buffer&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }

  explicit operator bool() const { return data_ != nullptr; }
  T* data() { return data_; }
  const T* data() const { return data_; }
  size_t size() const { return size_; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }

 private:
  static constexpr size_t kMaxBytes = PTRDIFF_MAX - kAlignment;

  T* data_ = nullptr;
  size_t size_ = 0;
};

// Room for `count` elements in a buffer that serves call after call: where it is too small, a new
// one takes its place, zeroed, so that what vectors read behind a row is never undefined. False
// when there is no memory.
template <class T>
bool Grow(size_t count, Buffer<T>& buffer) {
  if (!buffer || buffer.size() < count) buffer = Buffer<T>::Zeroed(count);
  return static_cast<bool>(buffer);
}

}  // namespace quillon
