// Reading and writing of whole files, so that no command hangs at one or leaves half of one.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::kit {

// The bytes of a regular file. Pipes, devices, folders and links that lead nowhere are refused:
// reading them might never end. Throws Failure with the path and the reason.
std::string ReadFile(const std::string& path);

// The same test for what another function is going to read by its name.
void RequireRegularFile(const std::string& path);

// A file that gets its name when it is whole. Until then it lies beside under another name, and
// what had the name before stays as it was: after a full disk, after a kill, and when the object
// ends without Commit. A link stays a link to the new file. What is no regular file, such as
// /dev/null, is written directly. All throw Failure with the path and the reason.
class OutputFile {
 public:
  explicit OutputFile(std::string path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::string_view bytes);
  void Commit();

 private:
  friend void ReplaceFile(const std::string&, size_t,
                          const std::function<void(const std::string&)>&);
  void Close();
  [[noreturn]] void Fail(const std::string& reason) const;

  std::string path_, target_, beside_;  // as it was named, what that stands for, what is written
  std::FILE* file_ = nullptr;
  bool isDirect_ = false;
};

void WriteFile(const std::string& path, std::string_view bytes);

// For functions that write a file by its name, and do not tell when that fails: `write` is given a
// name beside the path, and what it wrote there becomes the path's when it has the size that it
// must have.
void ReplaceFile(const std::string& path, size_t size,
                 const std::function<void(const std::string&)>& write);

// Before work that may take long: throws Failure when a file that is to be written cannot be, is
// one of those that are read, or is asked for twice.
void CheckOutputs(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

// Makes the folder where it is missing, with those above it; throws Failure.
void MakeFolder(const std::string& folder);

// A folder that one program at a time works in. The lock ends with the object, and with its program
// however that ends. Throws Failure when another program holds it.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  std::string path_;
  void* handle_;  // of the operating system
};

}  // namespace quillon::kit
