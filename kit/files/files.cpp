#include "kit/files/files.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include "kit/errors.h"
#include "kit/files/system.h"

namespace quillon::kit {
namespace {

namespace fs = std::filesystem;

std::string Reason() { return std::generic_category().message(errno); }

using Opened = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

Opened OpenOrFail(const std::string& path) {
  std::string problem;
  Opened file(system::OpenRegular(path, problem), &std::fclose);
  if (!file) throw Failure("cannot open '" + path + "': " + problem);
  return file;
}

// What a name stands for, with links followed; the name itself where nothing is there.
fs::path Target(const std::string& path) {
  std::error_code error;
  fs::path target = fs::canonical(path, error);
  return error ? fs::path(path) : target;
}

fs::path FolderOf(const fs::path& path) {
  const fs::path folder = path.parent_path();
  return folder.empty() ? fs::path(".") : folder;
}

// Why the file cannot be written; nothing where it can.
std::string ProblemOfWriting(const fs::path& target) {
  std::error_code error;
  const auto status = fs::status(target, error);
  if (fs::is_directory(status)) return "it is a folder";
  if (fs::exists(status)) {
    if (!system::MayWrite(target.string())) return "it may not be written to";
    if (!fs::is_regular_file(status)) return "";
  }
  const fs::path folder = FolderOf(target);
  if (!fs::is_directory(folder, error)) return "there is no folder '" + folder.string() + "'";
  if (!system::MayWrite(folder.string())) {
    return "no file can be made in folder '" + folder.string() + "'";
  }
  return "";
}

bool AreTheSame(const std::string& one, const std::string& other) {
  std::error_code error;
  if (fs::equivalent(one, other, error)) return true;
  return fs::weakly_canonical(fs::absolute(one, error), error) ==
         fs::weakly_canonical(fs::absolute(other, error), error);
}

}  // namespace

std::string ReadFile(const std::string& path) try {
  const Opened file = OpenOrFail(path);
  std::string bytes;
  size_t used = 0;
  for (size_t block = 1 << 16;; block *= 2) {
    bytes.resize(used + block);
    const size_t read = std::fread(bytes.data() + used, 1, block, file.get());
    used += read;
    if (read == block) continue;
    if (std::ferror(file.get())) throw Failure("cannot read '" + path + "': " + Reason());
    bytes.resize(used);
    return bytes;
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the bytes of a file");
}

void RequireRegularFile(const std::string& path) try {
  OpenOrFail(path);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

OutputFile::OutputFile(std::string path) try
    : path_(std::move(path)), target_(Target(path_).string()) {
  const std::string problem = ProblemOfWriting(target_);
  if (!problem.empty()) Fail(problem);
  std::error_code error;
  const auto status = fs::status(target_, error);
  isDirect_ = fs::exists(status) && !fs::is_regular_file(status);
  if (isDirect_) {
    beside_ = target_;
    file_ = std::fopen(beside_.c_str(), "wb");
  } else {
    // Names of its own for each program and thread; one that a killed program left is passed over.
    static std::atomic<int> made = 0;
    do {
      const std::string name = ".quillon-" + std::to_string(system::ProcessId()) + "-" +
                               std::to_string(++made) + ".part";
      beside_ = (FolderOf(target_) / name).string();
      file_ = system::CreateNew(beside_);
    } while (!file_ && errno == EEXIST);
  }
  if (!file_) {
    const std::string reason = Reason();
    beside_.clear();
    Fail(reason);
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

OutputFile::~OutputFile() {
  if (file_) std::fclose(file_);
  if (!isDirect_ && !beside_.empty()) std::remove(beside_.c_str());
}

void OutputFile::Fail(const std::string& reason) const {
  throw Failure("cannot write '" + path_ + "': " + reason);
}

void OutputFile::Write(std::string_view bytes) try {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) Fail(Reason());
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void OutputFile::Close() {
  bool isWhole = std::fflush(file_) == 0;
  // A new file that a power failure takes is one that was not there before; an old one is not given
  // up before the new one is on the disk.
  std::error_code error;
  if (isWhole && !isDirect_ && fs::exists(target_, error)) isWhole = system::FlushToDisk(file_);
  const std::string reason = Reason();
  const bool isClosed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (!isWhole) Fail(reason);
  if (!isClosed) Fail(Reason());
}

void OutputFile::Commit() try {
  if (file_) Close();
  if (isDirect_) return;
  std::error_code error;
  const auto status = fs::status(target_, error);
  if (fs::is_regular_file(status)) fs::permissions(beside_, status.permissions(), error);
  fs::rename(beside_, target_, error);
  if (error) Fail(error.message());
  beside_.clear();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void WriteFile(const std::string& path, std::string_view bytes) try {
  OutputFile file(path);
  file.Write(bytes);
  file.Commit();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void ReplaceFile(const std::string& path, size_t size,
                 const std::function<void(const std::string&)>& write) try {
  OutputFile file(path);
  file.Close();
  write(file.beside_);
  std::error_code error;
  if (!file.isDirect_ && fs::file_size(file.beside_, error) != size) {
    file.Fail("not all of its " + std::to_string(size) +
              " bytes could be written; the disk may be full, or memory short");
  }
  file.file_ = std::fopen(file.beside_.c_str(), "ab");
  if (!file.file_) file.Fail(Reason());
  file.Commit();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void CheckOutputs(const std::vector<std::string>& inputs,
                  const std::vector<std::string>& outputs) try {
  for (size_t i = 0; i < outputs.size(); ++i) {
    const std::string refused = "cannot write '" + outputs[i] + "': ";
    const std::string problem = ProblemOfWriting(Target(outputs[i]));
    if (!problem.empty()) throw Failure(refused + problem);
    std::error_code error;
    if (fs::exists(outputs[i], error) && !fs::is_regular_file(outputs[i], error)) continue;
    for (const std::string& input : inputs) {
      if (AreTheSame(outputs[i], input)) throw Failure(refused + "it is read by this command");
    }
    for (size_t other = 0; other < i; ++other) {
      if (AreTheSame(outputs[i], outputs[other])) {
        throw Failure(refused + "two outputs would be this one file");
      }
    }
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the names of files");
}

void MakeFolder(const std::string& folder) try {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw Failure("cannot make folder '" + folder + "': " + error.message());
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a folder");
}

FolderLock::FolderLock(const std::string& folder) try
    : path_((fs::path(folder) / "run.lock").string()) {
  std::string problem;
  handle_ = system::LockFile(path_, problem);
  if (handle_) return;
  if (problem.empty()) problem = "another program works in it";
  throw Failure("cannot use folder '" + folder + "': " + problem);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a folder");
}

FolderLock::~FolderLock() { system::UnlockFile(path_, handle_); }

}  // namespace quillon::kit
