#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "kit/files/system.h"

namespace quillon::kit::system {
namespace {

// Told after all is closed: the text takes memory, which there may not be.
std::string Reason(int error = errno) { return std::generic_category().message(error); }

}  // namespace

std::FILE* OpenRegular(const std::string& path, std::string& problem) {
  // Without O_NONBLOCK a pipe that nobody writes to would hold the program up here.
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) {
    problem = Reason();
    return nullptr;
  }
  struct stat state = {};
  const bool isKnown = fstat(file, &state) == 0;
  if (isKnown && S_ISREG(state.st_mode)) {
    if (std::FILE* stream = fdopen(file, "rb")) return stream;
  }
  const int reason = errno;
  close(file);
  if (!isKnown || S_ISREG(state.st_mode)) {
    problem = Reason(reason);
  } else {
    problem = S_ISDIR(state.st_mode) ? "it is a folder" : "it is a pipe or a device, not a file";
  }
  return nullptr;
}

std::FILE* CreateNew(const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return nullptr;
  if (std::FILE* stream = fdopen(file, "wb")) return stream;
  const int reason = errno;
  unlink(path.c_str());
  close(file);
  errno = reason;
  return nullptr;
}

bool FlushToDisk(std::FILE* file) { return fsync(fileno(file)) == 0; }

bool MayWrite(const std::string& path) { return access(path.c_str(), W_OK) == 0; }

int ProcessId() { return getpid(); }

void* LockFile(const std::string& path, std::string& problem) {
  for (;;) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (file < 0) {
      problem = Reason();
      return nullptr;
    }
    if (flock(file, LOCK_EX | LOCK_NB) != 0) {
      const int reason = errno;
      close(file);
      if (reason != EWOULDBLOCK) problem = Reason(reason);
      return nullptr;
    }
    // Between opening and locking, the file may have been removed by the one who held it.
    struct stat ours = {}, named = {};
    if (fstat(file, &ours) == 0 && stat(path.c_str(), &named) == 0 && ours.st_ino == named.st_ino &&
        ours.st_dev == named.st_dev) {
      if (std::FILE* stream = fdopen(file, "r+")) return stream;
      const int reason = errno;
      unlink(path.c_str());
      close(file);
      problem = Reason(reason);
      return nullptr;
    }
    close(file);
  }
}

void UnlockFile(const std::string& path, void* handle) {
  unlink(path.c_str());
  std::fclose(static_cast<std::FILE*>(handle));
}

}  // namespace quillon::kit::system
