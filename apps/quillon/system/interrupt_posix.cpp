#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <system_error>
#include <tuple>

#include "interrupt.h"

namespace quillon::app {
namespace {

constexpr int kSignals[] = {SIGINT, SIGHUP, SIGTERM};

volatile std::sig_atomic_t isInterrupted = 0;
// A pipe that can be read once the interrupt has come: waiting for it and for a reader at the same
// time misses neither, whichever thread the signal went to.
int wake[2] = {-1, -1};
struct sigaction before[std::size(kSignals)];

void OnSignal(int) {
  const int error = errno;
  isInterrupted = 1;
  std::ignore = write(wake[1], "", 1);
  errno = error;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  isInterrupted = 0;
  if (pipe(wake) != 0) wake[0] = wake[1] = -1;
  for (const int end : wake) {
    if (end >= 0) fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  for (size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], nullptr, &before[i]);
    if (before[i].sa_handler == SIG_IGN) continue;
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigaction(kSignals[i], &action, nullptr);
  }
}

InterruptGuard::~InterruptGuard() {
  for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &before[i], nullptr);
  for (int& end : wake) {
    if (end >= 0) close(end);
    end = -1;
  }
}

bool IsInterrupted() { return isInterrupted != 0; }

std::string WriteUnlessInterrupted(Stream stream, std::string_view text) {
  constexpr size_t kAtOnce = 4096;    // a pipe that has room at all takes as much without waiting
  static std::atomic<bool> isCut[3];  // in the middle of a line, perhaps
  const int descriptor = static_cast<int>(stream);
  while (!text.empty()) {
    if (isCut[descriptor]) return "interrupted";
    pollfd waits[] = {{.fd = descriptor, .events = POLLOUT, .revents = 0},
                      {.fd = wake[0], .events = POLLIN, .revents = 0}};
    const int ready = poll(waits, std::size(waits), IsInterrupted() ? 0 : -1);
    if (ready < 0 && errno != EINTR) return std::generic_category().message(errno);
    if (ready < 0 || waits[0].revents == 0) {
      isCut[descriptor] = IsInterrupted();
      continue;
    }
    const ssize_t written = write(descriptor, text.data(), std::min(kAtOnce, text.size()));
    if (written < 0 && errno != EINTR && errno != EAGAIN) {
      return std::generic_category().message(errno);
    }
    text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(0, written)));
  }
  return "";
}

}  // namespace quillon::app
