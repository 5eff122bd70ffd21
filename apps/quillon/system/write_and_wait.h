// Writing to a standard stream on systems that cannot wait for its reader and an interrupt at once.
#pragma once

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

#include "interrupt.h"

namespace quillon::app {

// Returns why not all of the text was written; nothing when it was.
inline std::string WriteAndWait(Stream stream, std::string_view text) {
  std::FILE* const file = stream == Stream::kOutput ? stdout : stderr;
  const bool isWhole =
      std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
  return isWhole ? "" : std::generic_category().message(errno);
}

}  // namespace quillon::app
