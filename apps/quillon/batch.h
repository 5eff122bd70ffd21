// Many pictures through a recipe, on several threads, with results and pages in a folder: what
// `quillon run` does, and `quillon inspect` with boards in folders.
#pragma once

#include <string>
#include <vector>

#include "command_line.h"
#include "kit/recipe/results.h"

namespace quillon::app {

struct BatchOptions {
  int jobs = 0;        // 0: one for each processor
  std::string folder;  // empty: nothing is written
  bool resume = false, overwrite = false, noPages = false;
  bool objects = false;
  bool json = false, csv = false;  // a table where neither is wanted
};

// --jobs, --out, --resume, --overwrite, --no-pages, --objects. The commands have forms of their
// own.
void AddBatchOptions(Command command, BatchOptions& options);

// Files as they are given, folders as the images in them, by name; with the same slashes on every
// system, so that results can be compared. Throws Failure where there is none.
std::vector<std::string> ListImages(const std::vector<std::string>& given);

// Inspects the images, prints, and writes what is asked for. Returns the verdicts' counts; throws
// Failure when an interrupt ended it early.
kit::recipe::Counts RunBatch(const kit::recipe::Recipe& recipe, const kit::Sources& sources,
                             const std::vector<std::string>& images, const BatchOptions& options);

}  // namespace quillon::app
