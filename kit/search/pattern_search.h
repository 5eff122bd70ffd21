// A template taught and found by its grey values or colours, for `quillon match` and for recipes.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quillon/quillon.h"

namespace quillon::kit {

struct ReleasePattern {
  void operator()(NccTool* tool) const { IxDestroyNCCModel(tool); }
};
using PatternTool = std::unique_ptr<NccTool, ReleasePattern>;

// With `mask`, black pixels of the template do not count. Throws Failure naming the template.
PatternTool TeachPattern(const std::string& name, const GreyImage& pattern, bool mask);
PatternTool TeachPattern(const std::string& name, const ColourImage& pattern, bool mask);

// Where searches start: the level asked for, or one that suits the smallest size that is looked
// for. Throws Failure naming the template when it has no such level.
void ChooseStartLevel(const std::string& name, double smallestScale, std::optional<int> level,
                      NccTool* tool);

struct PatternQuery {
  double minScore;
  std::vector<double> angle;  // lowest, highest; empty: as the template lies
  std::vector<double> scale;  // smallest, largest
  int most;
};

std::vector<NccResult> FindPattern(const GreyImage& image, NccTool* tool,
                                   const PatternQuery& query);
std::vector<NccResult> FindPattern(const ColourImage& image, NccTool* tool,
                                   const PatternQuery& query);

}  // namespace quillon::kit
