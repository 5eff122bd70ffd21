// The calibration files: little-endian words and doubles, one after another.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "core/buffer.h"

namespace quillon {

class ParameterFile {
 public:
  // Modes as for fopen. A null name is a file that cannot be opened.
  ParameterFile(const char* name, const char* mode)
      : file_(name ? std::fopen(name, mode) : nullptr) {
    if (name && !file_ && errno == ENOMEM) NoteLackOfMemory();
  }
  ~ParameterFile() {
    if (file_) std::fclose(file_);
  }
  ParameterFile(const ParameterFile&) = delete;
  ParameterFile& operator=(const ParameterFile&) = delete;

  explicit operator bool() const { return file_ != nullptr; }

  template <class Value>
  void Write(Value value) {
    std::fwrite(&value, sizeof value, 1, file_);
  }

  // Leaves the value as it was when the file has ended.
  template <class Value>
  void Read(Value& value) {
    Value read;
    if (std::fread(&read, sizeof read, 1, file_) == 1) value = read;
  }

 private:
  std::FILE* file_;
};

}  // namespace quillon
