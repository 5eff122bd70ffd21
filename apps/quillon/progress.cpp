#include "progress.h"

#include <chrono>
#include <cstdio>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace quillon::app {
namespace {

bool ErrorsAreShown() {
#ifdef _WIN32
  return _isatty(_fileno(stderr)) != 0;
#else
  return isatty(STDERR_FILENO) != 0;
#endif
}

}  // namespace

Progress::Progress(std::string what) : what_(std::move(what)) {
  if (ErrorsAreShown()) thread_ = std::thread([this] { Show(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    finished_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void Progress::Step(int done, int total) {
  const std::lock_guard lock(mutex_);
  step_ = ", " + std::to_string(done) + " of " + std::to_string(total);
}

void Progress::Show() {
  using namespace std::chrono_literals;
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  size_t shown = 0;
  auto pause = 1000ms;
  while (!changed_.wait_for(lock, pause, [this] { return finished_; })) {
    pause = 200ms;
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    std::string line = what_ + " ... " + std::to_string(seconds.count()) + " s" + step_;
    const size_t length = line.size();
    if (length < shown) line.append(shown - length, ' ');
    shown = length;
    std::fprintf(stderr, "\r%s", line.c_str());
    std::fflush(stderr);
  }
  if (shown) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown), "");
}

}  // namespace quillon::app
