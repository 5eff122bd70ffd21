// Both kinds of matching. Scenes are drawn in whole numbers, so that they are the same everywhere.
#include <memory>

#include "geomatch/support/reference.h"
#include "geomatch/support/scenes.h"
#include "golden/golden.h"
#include "golden/matching_scenes.h"
#include "pyramid/pyramid_reference.h"
#include "quillon/quillon.h"

namespace quillon::test::golden {
namespace {

// ---- templates of correlation -------------------------------------------------------------------

bool Masked(const GreyImage& image, int x, int y) { return image.rows[y][x] == 0; }
bool Masked(const ColourImage& image, int x, int y) {
  const uint8_t* p = image.rows[y] + 3 * x;
  return p[0] == 0 && p[1] == 0 && p[2] == 0;
}

template <class Pixel>
constexpr int kPlanes = static_cast<int>(sizeof(Pixel));

// The largest level that keeps a 64th of 4^level pixels that take part.
template <class Pixel>
int CoarsestLevel(const CImage<Pixel>& image, bool useMask) {
  int pixels = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) pixels += !useMask || !Masked(image, x, y);
  }
  int level = 0;
  while (level < 6 && (pixels + 32) / 64 >= 4 << 2 * level) ++level;
  return level;
}

template <class Pixel>
void AddPlainLevels(const CImage<Pixel>& image, Digest& digest) {
  for (bool useMask : {false, true}) {
    const int coarsest = CoarsestLevel(image, useMask);
    digest.Add(coarsest);
    for (int level = 0; level <= coarsest; ++level) {
      CImage<Pixel> reduced;
      reduced.Create(image.width >> level, image.height >> level);
      for (int y = 0; y < reduced.height; ++y) {
        for (int i = 0; i < reduced.width * kPlanes<Pixel>; ++i) {
          const int plane = i % kPlanes<Pixel>;
          reduced.rows[y][i] = reference::BlockMean(
              level, i / kPlanes<Pixel>, y,
              [&](int x, int v) { return image.rows[v][x * kPlanes<Pixel> + plane]; });
        }
      }
      digest.AddPixels(reduced);
    }
  }
}

template <class Pixel, class Teach, class Get>
void AddTaughtLevels(const CImage<Pixel>& image, Digest& digest, Teach teach, Get get) {
  const NccOwner tool(IxCreateNCCTool());
  CImage<Pixel> reduced;
  for (bool useMask : {false, true}) {
    teach(&image, tool.get(), useMask);
    digest.Add(IxGet_DefaultPyramidLevel(tool.get()));
    for (int level = 0; level <= IxGet_DefaultPyramidLevel(tool.get()); ++level) {
      get(tool.get(), &reduced, level);
      digest.AddPixels(reduced);
    }
  }
}

// ---- correlation --------------------------------------------------------------------------------

// The score at a position from sums of whole numbers.
template <class Pixel>
double PlainScore(const CImage<Pixel>& image, const CImage<Pixel>& pattern, bool useMask, int left,
                  int top) {
  double n = 0, sumI = 0, sumT = 0, sumII = 0, sumTT = 0, sumIT = 0;
  for (int y = 0; y < pattern.height; ++y) {
    for (int x = 0; x < pattern.width; ++x) {
      if (useMask && Masked(pattern, x, y)) continue;
      for (int plane = 0; plane < kPlanes<Pixel>; ++plane) {
        const double i = image.rows[top + y][(left + x) * kPlanes<Pixel> + plane];
        const double t = pattern.rows[y][x * kPlanes<Pixel> + plane];
        ++n, sumI += i, sumT += t, sumII += i * i, sumTT += t * t, sumIT += i * t;
      }
    }
  }
  const double meanI = sumI / n, meanT = sumT / n;
  const double devI = sumII - n * meanI * meanI, devT = sumTT - n * meanT * meanT;
  return devI <= 0 ? 0 : (sumIT - n * meanI * meanT) / std::sqrt(devI * devT);
}

constexpr double kMinScore = 0.7;

// All positions, best first, none near a better one.
template <class Pixel>
std::vector<WholeMatch> PlainMatches(const CImage<Pixel>& image, const CImage<Pixel>& pattern,
                                     bool useMask) {
  std::vector<WholeMatch> all, kept;
  for (int top = 0; top + pattern.height <= image.height; ++top) {
    for (int left = 0; left + pattern.width <= image.width; ++left) {
      const double score = PlainScore(image, pattern, useMask, left, top);
      if (score >= kMinScore) all.push_back({left, top, score});
    }
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const WholeMatch& a, const WholeMatch& b) { return a.score > b.score; });
  const int reach = std::min(pattern.width, pattern.height) / 2;
  for (const WholeMatch& match : all) {
    const bool apart = std::all_of(kept.begin(), kept.end(), [&](const WholeMatch& better) {
      return std::abs(match.left - better.left) >= reach ||
             std::abs(match.top - better.top) >= reach;
    });
    if (apart) kept.push_back(match);
  }
  return kept;
}

void AddMatches(const std::vector<WholeMatch>& matches, Digest& digest) {
  digest.Add(static_cast<int>(matches.size()));
  for (const WholeMatch& match : matches) {
    digest.Add(match.left);
    digest.Add(match.top);
    digest.Add(match.score);
  }
}

// Whole-pixel matches by the exports; what else a result holds must be that of a moved template.
template <class Pixel, class Teach, class Find>
void AddFoundMatches(const CImage<Pixel>& image, const CImage<Pixel>& pattern, bool useMask,
                     Digest& digest, Teach teach, Find find) {
  const NccOwner tool(IxCreateNCCTool());
  teach(&pattern, tool.get(), useMask);
  for (int level : {IxGet_DefaultPyramidLevel(tool.get()), 0}) {
    IxSetPyramidLevel(tool.get(), level);
    if (IxGet_CurrentPyramidLevel(tool.get()) != level) digest.Add(-1);
    const int count = find(&image, tool.get(), kMinScore, 0, 0, 1, 1, false, 20);
    std::vector<WholeMatch> matches;
    for (int i = 0; i < count; ++i) {
      NccResult r = {};
      IxGetNCCMatchResults(tool.get(), i, &r);
      const bool moved = r.angle == 0 && r.scale == 1 && r.matchWidth == pattern.width &&
                         r.matchHeight == pattern.height;
      if (!moved) digest.Add(-2);
      matches.push_back({static_cast<int>(std::lround(r.x - (pattern.width - 1) * 0.5)),
                         static_cast<int>(std::lround(r.y - (pattern.height - 1) * 0.5)), r.score});
    }
    AddMatches(matches, digest);
  }
}

void AddCorrelation(std::vector<Operation>& all) {
  all.push_back(
      {"IxCreateNCCMatchModel IxGet_DefaultPyramidLevel IxGet_Pyramid_GrayImage",
       [](const Picture& picture, Digest& digest) {
         AddTaughtLevels(picture.grey, digest, IxCreateNCCMatchModel, IxGet_Pyramid_GrayImage);
       },
       [](const Picture& picture, Digest& digest) { AddPlainLevels(picture.grey, digest); }});
  all.push_back(
      {"IxCreateNCCMatchColorModel IxGet_Pyramid_ColorImage",
       [](const Picture& picture, Digest& digest) {
         AddTaughtLevels(picture.colour, digest, IxCreateNCCMatchColorModel,
                         IxGet_Pyramid_ColorImage);
       },
       [](const Picture& picture, Digest& digest) { AddPlainLevels(picture.colour, digest); }});
  all.push_back({"IxCreateNCCMatchColorModel_ROI IxFindNCCMatchColorModel_ROI",
                 [](const Picture& picture, Digest& digest) {
                   const NccOwner tool(IxCreateNCCTool());
                   ColourImage pattern;
                   Colourise(picture.second, pattern);
                   IxCreateNCCMatchColorModel_ROI(&pattern, tool.get());
                   digest.Add(IxFindNCCMatchColorModel_ROI(&picture.colour, tool.get()));
                 },
                 [](const Picture& picture, Digest& digest) {
                   ColourImage pattern;
                   Colourise(picture.second, pattern);
                   digest.Add(PlainScore(picture.colour, pattern, false, 0, 0));
                 }});
  all.push_back(
      {"IxSetPyramidLevel IxGet_CurrentPyramidLevel IxFindNCCMatchModel IxGetNCCMatchResults",
       [](const Picture&, Digest& digest) {
         const CorrelationScene scene;
         for (bool useMask : {false, true}) {
           AddFoundMatches(scene.image, scene.pattern, useMask, digest, IxCreateNCCMatchModel,
                           IxFindNCCMatchModel);
         }
       },
       [](const Picture&, Digest& digest) {
         const CorrelationScene scene;
         for (bool useMask : {false, true}) {
           const auto matches = PlainMatches(scene.image, scene.pattern, useMask);
           for (int start = 0; start < 2; ++start) AddMatches(matches, digest);
         }
       },
       /*everyPicture=*/false});
  all.push_back({"IxFindNCCMatchColorModel",
                 [](const Picture&, Digest& digest) {
                   const CorrelationScene scene;
                   for (bool useMask : {false, true}) {
                     AddFoundMatches(scene.colourImage, scene.colourPattern, useMask, digest,
                                     IxCreateNCCMatchColorModel, IxFindNCCMatchColorModel);
                   }
                 },
                 [](const Picture&, Digest& digest) {
                   const CorrelationScene scene;
                   for (bool useMask : {false, true}) {
                     const auto matches =
                         PlainMatches(scene.colourImage, scene.colourPattern, useMask);
                     for (int start = 0; start < 2; ++start) AddMatches(matches, digest);
                   }
                 },
                 /*everyPicture=*/false});
}

// ---- edges --------------------------------------------------------------------------------------

constexpr double kThresholds[][2] = {{60, 20}, {200, 199.5}, {0, 0}};

Operation TaughtEdges() {
  return {
      "IxCreateGeoMatchModel",
      [](const Picture& picture, Digest& digest) {
        const GeoOwner tool(IxCreateGeoTool());
        for (const auto& [high, low] : kThresholds) {
          IxCreateGeoMatchModel(&picture.grey, tool.get(), high, low);
          const GeoModelLevel& level = *tool->model;
          for (int i = 0; i < level.count; ++i) {
            for (const int32_t* numbers : {level.x, level.y, level.gradientX, level.gradientY}) {
              digest.Add(numbers[i]);
            }
            digest.Add(level.inverseMagnitude[i]);
          }
          for (int n :
               {level.count, level.width, level.height, level.referenceX, level.referenceY}) {
            digest.Add(n);
          }
          digest.Add(level.radius);
        }
      },
      [](const Picture& picture, Digest& digest) {
        for (const auto& [high, low] : kThresholds) {
          const reference::GeoLevel level = reference::Teach(picture.grey, high, low).levels[0];
          for (const reference::GeoPoint& p : level.points) {
            for (int n : {p.x, p.y, p.gx, p.gy}) digest.Add(n);
            digest.Add(p.inverse);
          }
          for (int n : {static_cast<int>(level.points.size()), level.width, level.height,
                        level.referenceX, level.referenceY}) {
            digest.Add(n);
          }
          digest.Add(level.radius);
        }
      }};
}

Operation FoundEdges() {
  return {
      "IxFindGeoMatchModel",
      [](const Picture&, Digest& digest) {
        for (uint32_t seed = 1; seed <= kEdgeScenes; ++seed) {
          const EdgeScene scene(seed, 0);
          digest.AddAll(scene.Find(0));
        }
      },
      [](const Picture&, Digest& digest) {
        for (uint32_t seed = 1; seed <= kEdgeScenes; ++seed) {
          const EdgeScene scene(seed, 0);
          int position[2] = {-7, 12345};
          reference::Find(
              scene.image, reference::Teach(scene.pattern, 80, 30),
              {.minScore = 0.6, .greediness = 0.8, .anyAngle = false, .lowest = 0, .highest = 0},
              position);
          for (int n : position) digest.Add(static_cast<double>(n));
          digest.Add(0.0);
        }
      },
      /*everyPicture=*/false};
}

}  // namespace

void AddMatching(std::vector<Operation>& all) {
  AddCorrelation(all);
  all.push_back(TaughtEdges());
  all.push_back(FoundEdges());
}

}  // namespace quillon::test::golden
