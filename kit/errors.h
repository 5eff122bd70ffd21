// How all of the kit fails: it throws this, and nothing else of its own. What the standard library
// throws where memory ends becomes OutOfMemory at the entrances of the rooms that hold pictures:
// files, pictures and pages of reports, operations, recipes.
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
  explicit OutOfMemory(const std::string& what)
      : Failure("there is not enough memory for " + what), wanted(what) {}
  std::string wanted;  // "image 'a.png'"
};

// Does the work; where memory ends, says for what: "page 'a.html' (a picture of 4000 x 3000)".
template <class Work>
auto WithinMemory(const std::string& wanted, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw OutOfMemory(wanted);
  } catch (const OutOfMemory& inside) {
    throw OutOfMemory(wanted + " (" + inside.wanted + ")");
  }
}

}  // namespace quillon::kit
