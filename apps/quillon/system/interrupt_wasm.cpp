// A module receives no signals: who runs it ends it.
#include "interrupt.h"
#include "write_and_wait.h"

namespace quillon::app {

InterruptGuard::InterruptGuard() = default;
InterruptGuard::~InterruptGuard() = default;

bool IsInterrupted() { return false; }

std::string WriteUnlessInterrupted(Stream stream, std::string_view text) {
  return WriteAndWait(stream, text);
}

}  // namespace quillon::app
