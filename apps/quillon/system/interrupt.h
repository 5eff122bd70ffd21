// Ending long work in order when the user, the terminal or the system asks for it. Signals belong
// to the process, so this is the program's, and the kit is only told to stop.
#pragma once

#include <string>
#include <string_view>

namespace quillon::app {

// While it lives, the interrupt key, a hang-up and a request to terminate set what IsInterrupted
// tells, and the work ends itself; a second one ends the program. What the parent had ignored stays
// ignored.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
};

bool IsInterrupted();

enum class Stream { kOutput = 1, kError = 2 };

// Writes all of the text, but waits for a reader no longer than until the interrupt: a stream that
// was not ready then receives nothing more. Returns why not all was written; nothing when it was.
std::string WriteUnlessInterrupted(Stream stream, std::string_view text);

}  // namespace quillon::app
