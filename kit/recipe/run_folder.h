// The folder of a run: results.jsonl, index.html, pages/ and thumbs/. One run at a time works in
// it, no file is overwritten that no run wrote, and the results of a run stay until those that
// replace them are whole.
#pragma once

#include <string>

#include "kit/files/files.h"

namespace quillon::kit::recipe {

class RunFolder {
 public:
  enum class Mode { kNew, kResume, kOverwrite };

  // Makes the folder where it is missing and locks it. Throws Failure when another run works in it,
  // or when it holds what this mode must not touch.
  RunFolder(std::string folder, Mode mode);

  // Where this run puts its files: the folder itself, or the one in it where a run waits to be
  // whole.
  const std::string& Work() const { return work_; }
  bool KeepsARunBefore() const { return work_ != folder_; }

  // The run is whole, and its files are closed: they take the place of those before.
  void Finish();

 private:
  void TakePlace();

  std::string folder_, work_;
  FolderLock lock_;
};

// The file of the results in such a folder.
std::string ResultsIn(const std::string& folder);

}  // namespace quillon::kit::recipe
