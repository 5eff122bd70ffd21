#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "browser.h"

namespace quillon::app {

std::string ProgramPath() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).string();
}

std::string OpenInBrowser(const std::string& path) {
  constexpr const char* kOpener = "xdg-open";
  std::string program = kOpener, file = path;
  char* const arguments[] = {program.data(), file.data(), nullptr};
  pid_t child = 0;
  if (const int error = posix_spawnp(&child, kOpener, nullptr, nullptr, arguments, environ)) {
    return program + ": " + std::generic_category().message(error);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return program + ": " + std::generic_category().message(errno);
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return program +
         (WIFEXITED(status) ? " ended with " + std::to_string(WEXITSTATUS(status)) : " was ended");
}

}  // namespace quillon::app
