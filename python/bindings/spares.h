// Images that were let go, for the next ones of their size. A fresh store of some megabytes costs
// more in page faults than most operations: copying a picture of 1920 x 1080 into one takes 20
// times as long as into a warm one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <vector>

#include "quillon/image.h"

namespace quillon::python {

template <class Pixel>
class Spares {
 public:
  using Image = std::unique_ptr<CImage<Pixel>>;

  // One for all threads, never destroyed: arrays may outlive static objects.
  static Spares& Instance() {
    static auto* spares = new Spares;
    return *spares;
  }

  // An image of this size with old pixels and zero padding, or null.
  Image Take(int width, int height) {
    const std::lock_guard lock(mutex_);
    const auto fits = [&](const Image& image) {
      return image->width == width && image->height == height;
    };
    const auto found = std::find_if(images_.rbegin(), images_.rend(), fits);
    if (found != images_.rend()) return Remove(std::prev(found.base()));
    // The sizes in use have changed: the oldest is not wanted any more.
    if (!images_.empty()) Remove(images_.begin());
    return nullptr;
  }

  // Keeps the image, its padding zero, as long as there is room.
  void Give(Image image) {
    const std::lock_guard lock(mutex_);
    const size_t size = static_cast<size_t>(image->imageSize);
    if (!image->bits || bytes_ + size > kMostBytes || images_.size() >= kMostImages) return;
    bytes_ += size;
    images_.push_back(std::move(image));
  }

 private:
  static constexpr size_t kMostBytes = size_t{64} << 20;
  static constexpr size_t kMostImages = 16;

  Image Remove(typename std::vector<Image>::iterator position) {
    Image image = std::move(*position);
    bytes_ -= static_cast<size_t>(image->imageSize);
    images_.erase(position);
    return image;
  }

  std::mutex mutex_;
  std::vector<Image> images_;  // oldest first
  size_t bytes_ = 0;
};

}  // namespace quillon::python
