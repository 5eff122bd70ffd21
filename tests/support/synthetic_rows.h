// The scenes in which correlation is measured: of the exports' search and of the finder.
#pragma once

#include <vector>

#include "support/scenes.h"

namespace quillon::test {

struct SyntheticRow {
  const char* name;
  SceneSpec spec;
  int scenes;
};

// Eight rows, each also at a lower contrast with noise.
inline std::vector<SyntheticRow> SyntheticRows() {
  std::vector<SyntheticRow> rows = {
      {"moved", {.instances = 5, .seed = 100}, 20},
      {"moved, 20 a scene", {.width = 1280, .height = 1024, .instances = 20, .seed = 200}, 5},
      {"turned up to 20°", {.instances = 5, .angleMin = -20, .angleMax = 20, .seed = 300}, 20},
      {"turned any way",
       {.width = 1280,
        .height = 1024,
        .instances = 20,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 400},
       5},
      {"scaled 0.8 to 1.2", {.instances = 4, .scaleMin = 0.8, .scaleMax = 1.2, .seed = 500}, 20},
      {"turned any way, scaled",
       {.templateWidth = 100,
        .templateHeight = 100,
        .width = 1280,
        .height = 1024,
        .instances = 10,
        .angleMin = -180,
        .angleMax = 180,
        .scaleMin = 0.8,
        .scaleMax = 1.2,
        .seed = 600},
       5},
      {"100 x 60, turned, scaled",
       {.templateWidth = 100,
        .templateHeight = 60,
        .instances = 4,
        .angleMin = -30,
        .angleMax = 30,
        .scaleMin = 0.9,
        .scaleMax = 1.1,
        .seed = 700},
       10},
      {"150 x 151, turned any way",
       {.templateWidth = 150,
        .templateHeight = 151,
        .width = 1280,
        .height = 1024,
        .instances = 6,
        .angleMin = -180,
        .angleMax = 180,
        .seed = 800},
       5},
  };
  const size_t clean = rows.size();
  for (size_t i = 0; i < clean; ++i) {
    SyntheticRow noisy = rows[i];
    noisy.spec.gain = 0.7;
    noisy.spec.noise = 10;
    rows.push_back(noisy);
  }
  return rows;
}

}  // namespace quillon::test
