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

// What happens to a template on its way into a scene.
struct Placement {
  double x, y;     // where its pixel (width / 2, height / 2) comes to lie
  double degrees;  // clockwise as displayed
  double gain = 1;
};

// Lays the turned template over the scene, interpolating between its pixels.
void Place(const GreyImage& pattern, const Placement& placement, GreyImage& scene);

// Normal noise, clamped to bytes.
void AddNoise(GreyImage& image, double sigma, Random& random);

}  // namespace quillon::test
