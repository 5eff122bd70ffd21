// How all of the kit fails: what the headers of its rooms offer to fronts throws this, and nothing
// else. What the standard library throws where memory ends becomes OutOfMemory in the handler of
// each such function:
//
//   std::vector<Edge> FindEdges(...) try {
//     ...
//   } catch (const std::bad_alloc&) {
//     throw OutOfMemory("edges");
//   }
//
// What only other rooms of the kit call leaves that to its callers. Exports throw nothing: what
// calls them does so through CallExports. No handler helps where a value of the JSON library is
// destroyed: that takes memory, and ends the program where there is none.
#pragma once

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "quillon/memory_note.h"

namespace quillon::kit {

// The message names the file or argument, the value and the limit.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// There is too little memory: what is wrong is not what was given. The message lies in the object,
// as there may be no memory for it either; what does not fit is cut off.
class OutOfMemory : public Failure {
 public:
  // For what: "image 'a.png'", and for which part of it.
  explicit OutOfMemory(std::string_view wanted, std::string_view part = {}) noexcept : Failure("") {
    Add(kBeginning);
    Add(wanted);
    if (part.empty()) return;
    Add(" (");
    Add(part);
    Add(")");
  }

  const char* what() const noexcept override { return message_; }
  std::string_view Wanted() const {
    return std::string_view(message_, length_).substr(kBeginning.size());
  }

 private:
  static constexpr std::string_view kBeginning = "there is not enough memory for ";

  void Add(std::string_view text) {
    length_ += text.copy(message_ + length_, sizeof message_ - 1 - length_);
  }

  char message_[400] = {};
  size_t length_ = 0;
};

// Does work that calls exports. Where one of them found no memory, its result may be the picture as
// it was, or that nothing is there: then this throws what the standard library throws.
template <class Work>
auto CallExports(Work work) {
  const int before = std::exchange(errno, 0);
  const auto check = [before] {
    if (HasMemoryNote()) throw std::bad_alloc();
    errno = before;  // where such work is part of other such work, that one's note stays
  };
  if constexpr (std::is_void_v<decltype(work())>) {
    work();
    check();
  } else {
    auto result = work();
    check();
    return result;
  }
}

// Does the work; where memory ends, says for what, though the work knows only of a part of it:
// "page 'a.html' (a picture of 4000 x 3000)".
template <class Work>
auto WithinMemory(std::string_view wanted, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw OutOfMemory(wanted);
  } catch (const OutOfMemory& inside) {
    throw OutOfMemory(wanted, inside.Wanted());
  }
}

}  // namespace quillon::kit
