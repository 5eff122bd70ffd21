// How all of the kit fails: it throws this, and nothing else of its own.
#pragma once

#include <new>
#include <stdexcept>
#include <string>

namespace quillon::kit {

// The message names the file or argument, the value and the limit.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// There is too little memory: what is wrong is not what was given.
struct OutOfMemory : Failure {
  explicit OutOfMemory(const std::string& wanted)
      : Failure("there is not enough memory for " + wanted) {}
};

// Does the work, which throws std::bad_alloc where its memory is too little: "image 'a.png'".
template <class Work>
auto WithinMemory(const std::string& wanted, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw OutOfMemory(wanted);
  }
}

}  // namespace quillon::kit
