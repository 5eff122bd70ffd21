// How a command fails: it throws, and main prints "quillon: MESSAGE" and exits with 1. Usage errors
// are the argument parser's, exit code 2. A command that judges and did its work, but not
// everything passed, throws NotAllPassed when all is printed: exit code 3.
#pragma once

#include <stdexcept>

namespace quillon::app {

// The message names the file or option, the value and the limit.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct NotAllPassed {};

}  // namespace quillon::app
