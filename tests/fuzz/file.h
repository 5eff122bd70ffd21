// A file of the fuzzer's bytes, of this process alone.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

namespace quillon::fuzz {

inline const char* FileOf(const uint8_t* bytes, size_t size) {
  static const std::string path =
      (std::filesystem::temp_directory_path() / ("quillon-fuzz-" + std::to_string(getpid())))
          .string();
  if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
    std::fwrite(bytes, 1, size, file);
    std::fclose(file);
  }
  return path.c_str();
}

}  // namespace quillon::fuzz
