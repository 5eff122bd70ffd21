// What the finder's tables share: the settings of the program, scenes that are searched, and the
// figures of what was found.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "accuracy/scenes.h"
#include "finder/finder.h"
#include "support/scenes.h"

namespace quillon::accuracy {

struct Settings {
  int scenes = 150;
  uint64_t seed = 1;
  std::string only;  // the name of a table
  bool isVerbose = false;
  std::vector<cv::Mat> photos;
  const FinderKernels* kernels = &BestFinderKernels();  // of the times
};

finder::Picture PictureOf(const cv::Mat& mat);
finder::Picture PictureOf(const GreyImage& image);

double CpuSeconds();
double Mean(const std::vector<double>& values);
double Largest(const std::vector<double>& values);

// ---- scenes with one part -----------------------------------------------------------------------

struct Tally {
  int found = 0, trials = 0;
  std::vector<double> distances, turns, times;

  void Print() const;
};

// One scene: the best match must be the taught one.
void FindOne(const Settings& settings, const Scene& scene, const finder::Model& model,
             const finder::FindOptions& options, Tally& tally);

// ---- scenes with many ---------------------------------------------------------------------------

struct Figures {
  int truths = 0, found = 0, wrong = 0;
  std::vector<double> distances, turns, scales, times;
  std::vector<double> sizes;                     // of the parts found
  std::vector<double> overBound, turnOverBound;  // squared errors over what noise allows at best
};

// Compares what was found with what was drawn; a match farther than two pixels from every part that
// is not found yet is wrong.
void Compare(const std::vector<test::Truth>& truths, const finder::Results& results,
             Figures& figures);

// The end of a table's first line, after its own columns; and that of a row.
constexpr char kFiguresHeader[] =
    " instances | found | false | position mean, worst | angle mean, worst | scale mean | time | "
    "of "
    "the bound |\n|---|---|---|---|---|---|---|---|---|---|\n";
void PrintFigures(const Figures& figures);

// ---- the tables ---------------------------------------------------------------------------------

void PrintEdges(const Settings& settings);
void PrintAccepted(const Settings& settings);
void PrintNarrow(const Settings& settings);
void PrintGrey(const Settings& settings);
void PrintScales(const Settings& settings);
void PrintSideBySide(const Settings& settings);
void PrintCovered(const Settings& settings);
void PrintTimes(const Settings& settings);
void PrintCosts(const Settings& settings);

}  // namespace quillon::accuracy
