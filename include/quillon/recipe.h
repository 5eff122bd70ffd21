// Recipes in a C++ program: what `quillon run`, Python and the workbench say of an image, said by
// the program itself. Unlike the exports, this is linked into the program (pkg-config
// quillon-recipe), by the compiler family that the package was built with.
//
//   quillon::RecipeRunner recipe("count-the-parts.json");
//   std::cout << recipe.RunFile("tray.png").line << '\n';
#pragma once

#include <memory>
#include <string>

#include "quillon/image.h"

namespace quillon {

struct RecipeResult {
  std::string verdict;  // "pass", "fail", "unreadable" or "error"
  std::string error;    // why the image was not read, or which step failed
  std::string line;     // all of it as `quillon run --json` prints it: measurements and what failed
};

// A recipe that is ready: its templates are taught, its files are read. One object for each thread.
// Functions throw std::runtime_error with a sentence that names file, step and field.
class RecipeRunner {
 public:
  // Files that the recipe names lie beside it.
  explicit RecipeRunner(const std::string& path);
  RecipeRunner(RecipeRunner&&) noexcept;
  ~RecipeRunner();

  RecipeResult RunFile(const std::string& path);
  // A picture in memory, which is not changed; the name stands in the line.
  RecipeResult Run(const GreyImage& image, const std::string& name = "");
  RecipeResult Run(const ColourImage& image, const std::string& name = "");

 private:
  struct Inside;
  std::unique_ptr<Inside> inside_;
};

}  // namespace quillon
