#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "kit/files/system.h"

namespace quillon::kit::system {

std::FILE* OpenRegular(const std::string& path, std::string& problem) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) {
    problem = "it is a folder";
  } else if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    problem = "it is a pipe or a device, not a file";
  } else if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
    return file;
  } else {
    problem = std::generic_category().message(errno);
  }
  return nullptr;
}

std::FILE* CreateNew(const std::string& path) {
  const int file =
      _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
  return file < 0 ? nullptr : _fdopen(file, "wb");
}

bool FlushToDisk(std::FILE* file) { return _commit(_fileno(file)) == 0; }

bool MayWrite(const std::string& path) { return _access(path.c_str(), 2) == 0; }

int ProcessId() { return _getpid(); }

// Opened by one program at a time, and removed by the system when that one ends.
void* LockFile(const std::string& path, std::string& problem) {
  void* const handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                   OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (handle != INVALID_HANDLE_VALUE) return handle;
  const DWORD error = GetLastError();
  if (error != ERROR_SHARING_VIOLATION) {
    problem = std::system_category().message(static_cast<int>(error));
  }
  return nullptr;
}

void UnlockFile(const std::string&, void* handle) { CloseHandle(handle); }

}  // namespace quillon::kit::system
