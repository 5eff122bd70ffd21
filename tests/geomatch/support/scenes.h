// Templates and scenes for edge-based matching, and a tool that releases itself.
#pragma once

#include "geomatch/tool.h"
#include "support/images.h"

namespace quillon::test {

class Tool {
 public:
  Tool() : tool_(ConstructGeoTool()) {}
  ~Tool() { DestroyGeoTool(tool_); }
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;
  GeoMatchTool& operator*() { return *tool_; }
  GeoMatchTool* operator->() { return tool_; }
  const GeoTaughtTool& Taught() const { return static_cast<const GeoTaughtTool&>(*tool_); }

 private:
  GeoMatchTool* tool_;
};

// Overlapping rectangles, discs and triangles on an even ground.
void DrawShapes(GreyImage& image, int width, int height, uint32_t seed);

}  // namespace quillon::test
