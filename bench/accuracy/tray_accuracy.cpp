#include "tray_accuracy.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "cli/drawn_trays.h"
#include "kit/recipe/inspector.h"

namespace quillon::accuracy {
namespace {

constexpr double kAllowed = 0.02;  // mm

double Worst(const std::vector<double>& errors) {
  double worst = 0;
  for (const double error : errors) worst = std::max(worst, std::abs(error));
  return worst;
}

void PrintRow(const char* name, const std::vector<double>& errors) {
  double sum = 0, squares = 0;
  for (const double error : errors) sum += error, squares += error * error;
  const auto count = static_cast<double>(errors.size());
  const double bias = sum / count, deviation = std::sqrt(squares / count - bias * bias);
  std::printf("| %s | %zu | %+.4f | %.4f | %.4f |\n", name, errors.size(), bias, deviation,
              Worst(errors));
}

}  // namespace

bool PrintTrays(uint64_t seed, const std::string& example) {
  constexpr int kCameras = 10, kTraysEach = 20;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("quillon-measure-accuracy-" + std::to_string(seed));
  std::filesystem::create_directories(folder);
  const std::string file = (folder / "camera.json").string();
  const std::filesystem::path templates = std::filesystem::path(example).parent_path();
  test::BracketErrors errors;
  int missed = 0, refused = 0;
  for (int i = 0; i < kCameras; ++i) {
    test::TrayCamera camera(seed + static_cast<uint64_t>(i), file);
    const kit::recipe::Recipe recipe =
        kit::recipe::MakeRecipe(test::RecipeForCamera(example, file));
    kit::recipe::Inspector inspector(recipe, {templates.string()});
    for (int k = 0; k < kTraysEach; ++k) {
      GreyImage image;
      int brackets = 0;
      camera.Take(static_cast<uint32_t>(seed + static_cast<uint64_t>(i * kTraysEach + k)), image,
                  brackets);
      const auto record = inspector.Inspect(image);
      refused += record.verdict != kit::recipe::Verdict::kPass;
      missed += !record.error.empty() || !AddErrors(recipe, inspector, brackets, errors);
    }
  }
  std::filesystem::remove_all(folder);
  std::printf(
      "\n| millimetres | measured | bias | deviation | worst |\n"
      "|---|---|---|---|---|\n");
  PrintRow("diameters of holes", errors.diameters);
  PrintRow("from hole to hole", errors.distances);
  PrintRow("square of the legs", errors.angles);
  std::printf("\n%d trays: %d with a bracket too few or too many, %d refused by the recipe\n",
              kCameras * kTraysEach, missed, refused);
  const double worst =
      std::max({Worst(errors.diameters), Worst(errors.distances), Worst(errors.angles)});
  return missed == 0 && refused == 0 && worst <= kAllowed;
}

}  // namespace quillon::accuracy
