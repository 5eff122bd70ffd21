// Many images on several threads, with results in the order of the images.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kit/recipe/inspector.h"

namespace quillon::kit::recipe {

struct Work {
  const std::vector<std::string>& images;
  size_t first;  // those before it are done
  // Called for each image, on any thread, with that thread's inspector.
  std::function<ImageRecord(Inspector& inspector, size_t index)> inspect;
  // Called with one record after the other, in the order of the images, never by two threads at a
  // time.
  std::function<void(size_t index, ImageRecord record)> receive;
  // Asked before each image, on any thread: whether to begin no more of them. None: never.
  std::function<bool()> isStopped = {};
};

// One thread for each inspector. What inspect or receive throws ends the work and is thrown on.
// Returns false when it was stopped early; all that was received is a gapless beginning.
bool RunAll(const Work& work, std::vector<std::unique_ptr<Inspector>>& inspectors);

}  // namespace quillon::kit::recipe
