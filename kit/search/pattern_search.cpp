#include "kit/search/pattern_search.h"

#include <algorithm>
#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

template <class Image, class Teach>
PatternTool TeachWith(const std::string& name, const Image& pattern, bool mask, Teach teach) {
  PatternTool tool(IxCreateNCCTool());
  if (!tool || !teach(&pattern, tool.get(), mask)) {
    throw OutOfMemory("template '" + name + "'");
  }
  return tool;
}

template <class Image, class Find>
std::vector<NccResult> FindWith(const Image& image, NccTool* tool, const PatternQuery& query,
                                Find find) {
  const bool anyAngle = !query.angle.empty();
  const double lowest = anyAngle ? query.angle[0] : 0, highest = anyAngle ? query.angle[1] : 0;
  const int count = CallExports([&] {
    return find(&image, tool, query.minScore, highest, lowest, query.scale[1], query.scale[0],
                anyAngle, query.most);
  });
  std::vector<NccResult> matches(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) IxGetNCCMatchResults(tool, i, &matches[static_cast<size_t>(i)]);
  return matches;
}

}  // namespace

PatternTool TeachPattern(const std::string& name, const GreyImage& pattern, bool mask) try {
  return TeachWith(name, pattern, mask, IxCreateNCCMatchModel);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a template");
}
PatternTool TeachPattern(const std::string& name, const ColourImage& pattern, bool mask) try {
  return TeachWith(name, pattern, mask, IxCreateNCCMatchColorModel);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a template");
}

void ChooseStartLevel(const std::string& name, double smallestScale, std::optional<int> level,
                      NccTool* tool) try {
  const int coarsest = IxGet_DefaultPyramidLevel(tool);
  if (level > coarsest) {
    throw Failure("level " + std::to_string(*level) + " is above " + std::to_string(coarsest) +
                  ", the coarsest of '" + name + "'");
  }
  // The coarsest level keeps some 16 pixels of the template as it was taught: of one that is looked
  // for at half that size, a level less keeps as many.
  const int smaller = std::max(static_cast<int>(std::lround(-std::log2(smallestScale))), 0);
  IxSetPyramidLevel(tool, level.value_or(std::max(coarsest - smaller, 0)));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a template");
}

std::vector<NccResult> FindPattern(const GreyImage& image, NccTool* tool,
                                   const PatternQuery& query) try {
  return FindWith(image, tool, query, IxFindNCCMatchModel);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a search of a template");
}
std::vector<NccResult> FindPattern(const ColourImage& image, NccTool* tool,
                                   const PatternQuery& query) try {
  return FindWith(image, tool, query, IxFindNCCMatchColorModel);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a search of a template");
}

}  // namespace quillon::kit
