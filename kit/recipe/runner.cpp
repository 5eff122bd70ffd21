#include "kit/recipe/runner.h"

#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

#include "kit/errors.h"

namespace quillon::kit::recipe {
namespace {

class Pool {
 public:
  explicit Pool(const Work& work) : work_(work), next_(work.first), toReceive_(work.first) {}

  bool Run(std::vector<std::unique_ptr<Inspector>>& inspectors) {
    std::vector<std::thread> threads;
    try {
      for (size_t i = 1; i < inspectors.size(); ++i) {
        threads.emplace_back([this, &inspectors, i] { Inspect(*inspectors[i]); });
      }
    } catch (const std::exception&) {
      // There is no further thread, or none at all as in WebAssembly, or no memory for one: those
      // there are do all.
    }
    Inspect(*inspectors[0]);
    for (std::thread& thread : threads) thread.join();
    if (failure_) std::rethrow_exception(failure_);
    return toReceive_ == work_.images.size();
  }

 private:
  void Inspect(Inspector& inspector) {
    try {
      for (;;) {
        if (isStopped_ || (work_.isStopped && work_.isStopped())) return;
        const size_t index = next_++;
        if (index >= work_.images.size()) return;
        Receive(index, work_.inspect(inspector, index));
      }
    } catch (...) {
      isStopped_ = true;
      const std::lock_guard lock(mutex_);
      if (!failure_) failure_ = std::current_exception();
    }
  }

  // Keeps what comes too early.
  void Receive(size_t index, ImageRecord record) {
    const std::lock_guard lock(mutex_);
    early_.emplace(index, std::move(record));
    while (!failure_ && !early_.empty() && early_.begin()->first == toReceive_) {
      auto node = early_.extract(early_.begin());
      work_.receive(toReceive_, std::move(node.mapped()));
      ++toReceive_;
    }
  }

  const Work& work_;
  std::atomic<size_t> next_;
  std::atomic<bool> isStopped_ = false;
  std::mutex mutex_;
  std::map<size_t, ImageRecord> early_;
  size_t toReceive_;
  std::exception_ptr failure_;
};

}  // namespace

bool RunAll(const Work& work, std::vector<std::unique_ptr<Inspector>>& inspectors) try {
  return Pool(work).Run(inspectors);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a run");
}

}  // namespace quillon::kit::recipe
