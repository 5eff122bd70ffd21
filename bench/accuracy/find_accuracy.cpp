// How often the finder finds what it was taught, how exactly, and how fast: the tables of
// docs/find-accuracy.md.
//
//   quillon_find_accuracy [--scenes N] [--seed S] [--only TABLE] [--level NAME] [--verbose]
//   [FOLDER]
//
// FOLDER has photographs (.png, .jpg); without it there are drawn scenes only. The level is that of
// the times: avx2.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "accuracy/find_figures.h"

int main(int argc, char** argv) {
  using namespace quillon::accuracy;
  Settings settings;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--scenes" && i + 1 < argc) {
      settings.scenes = std::atoi(argv[++i]);
    } else if (option == "--seed" && i + 1 < argc) {
      settings.seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (option == "--only" && i + 1 < argc) {
      settings.only = argv[++i];
    } else if (option == "--level" && i + 1 < argc) {
      const std::string level = argv[++i];
      for (const auto* kernels : quillon::AvailableFinderKernels()) {
        if (level == kernels->level) settings.kernels = kernels;
      }
      if (level != settings.kernels->level) {
        std::fprintf(stderr, "find_accuracy: no level '%s' here\n", level.c_str());
        return 1;
      }
    } else if (option == "--verbose") {
      settings.isVerbose = true;
    } else {
      settings.photos = ReadPhotographs(option);
    }
  }
  constexpr struct {
    const char* name;
    void (*print)(const Settings&);
  } kTables[] = {{"edges", PrintEdges},  {"accepted", PrintAccepted}, {"narrow", PrintNarrow},
                 {"grey", PrintGrey},    {"side", PrintSideBySide},   {"covered", PrintCovered},
                 {"scale", PrintScales}, {"time", PrintTimes},        {"cost", PrintCosts}};
  for (const auto& table : kTables) {
    if (!settings.only.empty() && settings.only != table.name) continue;
    table.print(settings);
    std::printf("\n");
  }
  return 0;
}
