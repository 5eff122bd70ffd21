// A sign of life during long work: one line on standard error, where that is a terminal.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace quillon::app {

// While the object lives, the terminal shows "searching ... 3 s", or for work that has steps
// "inspecting [####------] 40 of 100, 3 s, about 5 s to go"; the line is removed at the end. Work
// of less than a second shows nothing, and neither does standard error that is a file or pipe.
class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // For work that has steps. The first call tells from how many the time to go is reckoned.
  void Step(int done, int total);

 private:
  void Show();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::string Line(double seconds) const;

  std::string what_;
  int first_ = -1, done_ = 0, total_ = 0;
  bool finished_ = false;
  std::thread thread_;  // the library's calls return when they are done: only a thread can tell
};

}  // namespace quillon::app
