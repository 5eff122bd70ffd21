#include <windows.h>
// After windows.h, whose names it uses.
#include <shellapi.h>

#include "browser.h"

namespace quillon::app {

std::string ProgramPath() {
  std::string path(MAX_PATH, '\0');
  for (;;) {
    const DWORD size = GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (size < path.size()) {
      path.resize(size);  // 0 where it failed
      return path;
    }
    path.resize(2 * path.size());
  }
}

std::string OpenInBrowser(const std::string& path) {
  const HINSTANCE answer =
      ShellExecuteA(nullptr, "open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  // What it returns is a handle by its type alone: numbers up to 32 are errors.
  const auto code = reinterpret_cast<INT_PTR>(answer);
  return code > 32 ? "" : "Windows opens it with no program (error " + std::to_string(code) + ")";
}

}  // namespace quillon::app
