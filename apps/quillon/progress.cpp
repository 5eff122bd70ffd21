#include "progress.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <system_error>
#include <utility>

#include "apps/quillon/system/interrupt.h"

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

// A terminal that is held or gone must not hold the work up.
void WriteToTerminal(const std::string& text) { WriteUnlessInterrupted(Stream::kError, text); }

}  // namespace

Progress::Progress(std::string what) : what_(std::move(what)) {
  if (!ErrorsAreShown()) return;
  try {
    thread_ = std::thread([this] { Show(); });
  } catch (const std::system_error&) {
    // Without threads, as in WebAssembly, the work goes on without a sign.
  }
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
  if (first_ < 0) first_ = done;
  done_ = done;
  total_ = total;
}

std::string Progress::Line(double seconds) const {
  const std::string elapsed = std::to_string(static_cast<int64_t>(seconds)) + " s";
  if (total_ <= 0) return what_ + " ... " + elapsed;
  constexpr int kWidth = 30;
  const auto filled = static_cast<size_t>(int64_t{kWidth} * done_ / total_);
  std::string line = what_ + " [" + std::string(filled, '#') + std::string(kWidth - filled, '-') +
                     "] " + std::to_string(done_) + " of " + std::to_string(total_) + ", " +
                     elapsed;
  if (done_ > first_ && done_ < total_) {
    const double rest = seconds / (done_ - first_) * (total_ - done_);
    line += ", about " + std::to_string(static_cast<int64_t>(rest) + 1) + " s to go";
  }
  return line;
}

void Progress::Show() {
  using namespace std::chrono_literals;
  const auto start = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  size_t shown = 0;
  auto pause = 1000ms;
  while (!changed_.wait_for(lock, pause, [this] { return finished_; })) {
    pause = 200ms;
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::string line = Line(elapsed.count());
    const size_t length = line.size();
    if (length < shown) line.append(shown - length, ' ');
    shown = length;
    WriteToTerminal("\r" + line);
  }
  if (shown) WriteToTerminal("\r" + std::string(shown, ' ') + "\r");
}

}  // namespace quillon::app
