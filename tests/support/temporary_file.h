// A file name of our own in the temporary folder; the file goes with the object.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace quillon::test {

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& name)
      : path_((std::filesystem::temp_directory_path() /
               ("quillon-test-" + std::to_string(reinterpret_cast<uintptr_t>(this)) + "-" + name))
                  .string()) {}
  ~TemporaryFile() { std::remove(path_.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const char* path() const { return path_.c_str(); }
  std::vector<char> Read() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void Write(const std::vector<char>& bytes) const {
    std::ofstream file(path_, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

 private:
  std::string path_;
};

}  // namespace quillon::test
