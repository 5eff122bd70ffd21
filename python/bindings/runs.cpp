// The folder and the records of a run whose images are inspected elsewhere, as `quillon run` leaves
// them; and what a recipe needs to be taken elsewhere.
#include <pybind11/stl.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "arrays.h"
#include "families.h"
#include "kit/errors.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_folder.h"
#include "kit/recipe/run_pages.h"

namespace quillon::python {
namespace {

namespace recipe = kit::recipe;

struct RunOptions {
  std::string folder;  // empty: nothing is written
  bool resumes, overwrites, hasPages, hasObjects;
};

recipe::RunFolder::Mode ModeOf(const RunOptions& options) {
  using enum recipe::RunFolder::Mode;
  return options.resumes ? kResume : options.overwrites ? kOverwrite : kNew;
}

class Run {
 public:
  Run(const std::string& path, std::vector<std::string> images, RunOptions options)
      : options_(std::move(options)),
        images_(std::move(images)),
        recipe_(recipe::ReadRecipe(path)) {
    if (options_.folder.empty()) return;
    const kit::Sources sources = std::filesystem::path(path).parent_path().string();
    folder_.emplace(options_.folder, ModeOf(options_));
    const std::string results = recipe::ResultsIn(folder_->Work());
    const recipe::RunHead head = {Fingerprint(recipe_, sources), options_.hasObjects};
    file_ = options_.resumes
                ? recipe::ResultsFile::Resume(results, recipe_, head, images_, records_)
                : recipe::ResultsFile::Begin(results, recipe_, head);
    if (options_.hasPages) pages_.emplace(recipe_, folder_->Work());
  }

  // The lines of what an earlier run has left.
  std::vector<std::string> Done() const {
    std::vector<std::string> lines;
    for (const auto& record : records_)
      lines.push_back(ToLine(recipe_, record, options_.hasObjects));
    return lines;
  }

  // Where the files of pages go; empty: there are none.
  std::string PageFolder() const { return pages_ ? folder_->Work() : ""; }

  // The next record; its line as it is in the results.
  std::string Append(const std::string& line) {
    records_.push_back(recipe::FromLine(recipe_, line));
    if (file_) file_->Append(recipe_, records_.back());
    return ToLine(recipe_, records_.back(), options_.hasObjects);
  }

  // Where not all images have a record, a run before this one stays.
  void Finish() {
    file_.reset();
    if (pages_) pages_->WriteIndex(records_);
    if (folder_ && records_.size() == images_.size()) folder_->Finish();
    pages_.reset();
    folder_.reset();
  }

  std::string Csv() const {
    std::ostringstream text;
    PrintCsv(ToFindings(recipe_, records_), text);
    if (options_.hasObjects) {
      text << '\n';
      PrintCsv(ObjectsToFindings(recipe_, records_), text);
    }
    return text.str();
  }

 private:
  RunOptions options_;
  std::vector<std::string> images_;
  recipe::Recipe recipe_;
  std::optional<recipe::RunFolder> folder_;
  std::vector<recipe::ImageRecord> records_;
  std::optional<recipe::ResultsFile> file_;
  std::optional<recipe::Pages> pages_;
};

// The names of the files that the recipe's steps read.
std::vector<std::string> FilesOf(const std::string& text) {
  using Type = kit::Argument::Type;
  std::vector<std::string> files;
  const recipe::Recipe made = recipe::MakeRecipe(text);
  for (const recipe::Step& step : made.steps) {
    for (const kit::Argument& argument : step.operation->arguments) {
      if (!step.values.Has(argument.name)) continue;
      if (argument.type == Type::kFile) files.push_back(step.values.Text(argument.name));
      if (argument.type != Type::kFiles) continue;
      for (std::string& file : step.values.List<std::string>(argument.name)) {
        files.push_back(std::move(file));
      }
    }
  }
  return files;
}

}  // namespace

void AddRuns(py::module_& module) {
  module.def("recipe_files", FilesOf);
  py::class_<Run>(module, "Run")
      .def(py::init([](const py::object& path, const py::list& names, const py::object& folder,
                       bool resumes, bool overwrites, bool hasPages, bool hasObjects) {
        std::vector<std::string> images;
        for (const auto& name : names) {
          images.push_back(FileNameOf(py::reinterpret_borrow<py::object>(name)));
        }
        return std::make_unique<Run>(FileNameOf(path), std::move(images),
                                     RunOptions{folder.is_none() ? "" : FileNameOf(folder), resumes,
                                                overwrites, hasPages, hasObjects});
      }))
      .def("done", &Run::Done)
      .def("page_folder", &Run::PageFolder)
      .def("append", &Run::Append)
      .def("finish", &Run::Finish)
      .def("csv", &Run::Csv);
}

}  // namespace quillon::python
