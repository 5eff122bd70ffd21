// Loops over rows of pixels, in blocks of one length: a compiler that is asked for small code too
// makes vectors of those, and of no others.
#pragma once

#include <type_traits>

namespace quillon::kit {

// Calls work(first, length) for each block, and for what is left behind the last one. `work` takes
// any type of length, and so is compiled once more for that of a block, which is a constant.
template <class Work>
void InBlocks(int count, Work work) {
  constexpr int kBlock = 64;
  int first = 0;
  for (; first + kBlock <= count; first += kBlock) {
    work(first, std::integral_constant<int, kBlock>());
  }
  work(first, count - first);
}

}  // namespace quillon::kit
