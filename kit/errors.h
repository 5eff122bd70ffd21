// How all of the kit fails: it throws this, and nothing else of its own.
#pragma once

#include <stdexcept>

namespace quillon::kit {

// The message names the file or argument, the value and the limit.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace quillon::kit
