// The finder: where is a taught template in a picture, at any angle and size, touching others or
// partly covered? Two ways to look: by grey values (normalised correlation) and by edges
// (directions of gradients). The host gives no pyramid level and no steps; teaching measures both.
//
//   finder::Model model;
//   if (finder::Teach(BestFinderKernels(), part, {}, model) != finder::Status::kOk) ...
//   finder::Results found;
//   finder::Find(BestFinderKernels(), model, picture, {.angleLow = -20, .angleHigh = 20}, found);
//   for (const finder::Match& match : found) ...
//
// Coordinates: whole numbers are pixel centres, x to the right, y down. Positive degrees turn
// clockwise as displayed. A template's centre is ((width - 1) / 2, (height - 1) / 2).
//
// The same bytes come out at every instruction-set level and on every platform. A model that is not
// being taught or loaded may be searched with from any number of threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/buffer.h"
#include "finder/grey_points.h"
#include "finder/levels.h"
#include "finder/list.h"

namespace quillon::finder {

enum class Status {
  kOk,
  kNoMemory,
  kNoPicture,       // no pixels, or a size that is not positive or above kMaxSide
  kBadMask,         // a don't-care mask of another size than the template
  kTooSmall,        // a template with a side below kMinSide, or that the mask leaves nothing of
  kFlat,            // grey: a template without contrast
  kTooFewEdges,     // edges: fewer than kMinEdges points
  kBadNumber,       // a number that is not finite, or outside the range that its field names
  kBadRegion,       // a region of interest that holds no pixel of the picture
  kDoesNotFit,      // the smallest allowed template is larger than the picture
  kDamaged,         // a model file that is cut short, or whose checksum or content is not right
  kUnknownVersion,  // a model file of a later version
};

// A sentence that begins in lower case and has no full stop.
const char* Describe(Status status);

constexpr int kMinSide = 6, kMaxSide = 16384;
constexpr int kMinEdges = 12;

enum class Way : uint8_t { kEdges, kGrey };
enum class Polarity : uint8_t { kSame, kAny };  // edges: dark on bright may be bright on dark

// Somebody else's pixels. Row y starts at `pixels + y * stride`; a negative stride is a picture
// that is stored bottom up.
struct Picture {
  const uint8_t* pixels = nullptr;
  int width = 0, height = 0;
  ptrdiff_t stride = 0;
};

struct TeachOptions {
  Way way = Way::kEdges;
  Picture mask = {};  // of the template's size, or none: zero is "don't care"
};

// What teaching thinks of a template. Bits of Model::doubts.
enum Doubt : uint32_t {
  kFewEdges = 1,   // under 40 edge points: chance patterns may look the same
  kRepeats = 2,    // looks like itself when moved
  kSlides = 4,     // looks like itself all along a line: a place on it cannot be told
  kSymmetric = 8,  // looks like itself when turned; Model::symmetry has the order
};

using quillon::ModelPoint;

constexpr int kMaxLevels = 7;

// Level l has pixels of 2^l x 2^l.
struct ModelLevel {
  List<ModelPoint> points;  // edges, strongest first
  // Edges: the points are those of the level below, for this one shows too few: its pixels blur
  // fine patterns away. It is only swept, over how well the picture agrees at the best of each
  // 2 x 2 pixels of the level below.
  bool isPooled = false;
  float contrast = 0;  // edges: the gradient below which the picture counts as even
  GreyPoints grey;     // grey: a sample of the pixels, some hundred; a thousand on level 0
  float radius = 0;    // of the farthest point
};

struct Pose {
  double x = 0, y = 0, degrees = 0, scale = 1;
};

struct Model {
  Way way = Way::kEdges;
  int width = 0, height = 0;
  Buffer<uint8_t> pixels;  // the template, rows without gaps
  Buffer<uint8_t> mask;    // the same size, 0 or 255; empty without a mask
  int levels = 0;          // made; the search starts at the last
  ModelLevel level[kMaxLevels];
  GreyPoints fineGrey;  // grey: all pixels of level 0, or a sample of a large template's
  uint32_t doubts = 0;
  int symmetry = 1;         // poses that look the same on turning by 360 / symmetry; 0: any turn
  double likeness = 0;      // the score of the template's best false pose on itself, 0 ... 1
  Pose likest;              // that pose
  double slideDegrees = 0;  // with kSlides: the direction in which it slides

  bool IsTaught() const { return levels > 0; }
};

// Makes `model` from all of `picture`. On failure the model is left untaught.
Status Teach(const FinderKernels& kernels, const Picture& picture, const TeachOptions& options,
             Model& model);

struct FindOptions {
  double angleLow = 0, angleHigh = 0;  // degrees, both included; 360 or more apart: any angle
  double scaleLow = 1, scaleHigh = 1;  // 0.5 ... 2, both included
  // The centres of matches lie in this rectangle: from (left, top), to (right, bottom) exclusive.
  // Empty (right <= left): all of the picture.
  int left = 0, top = 0, right = 0, bottom = 0;
  double minScore = 0.5;  // 0.1 ... 1
  int maxCount = 100;     // 1 ... 10000: the best ones
  // 0 ... 1: of the smaller of two turned outlines, and, below 1, of a match's own outline with all
  // better ones together.
  double maxOverlap = 0.5;
  Polarity polarity = Polarity::kSame;
};

struct Match {
  double x = 0, y = 0;  // of the template's centre
  double degrees = 0;   // clockwise, within the range that was asked for
  double scale = 1;
  double score = 0;           // see Score
  double visible = 0;         // the share of the template that is seen: 0 ... 1
  double corners[4][2] = {};  // of the outline: top left, top right, bottom right, bottom left
};

using Results = List<Match>;

// The matches, best first; of equal ones the upper, then the left one. None on failure.
Status Find(const FinderKernels& kernels, const Model& model, const Picture& picture,
            const FindOptions& options, Results& results);

// How well the template fits at a pose, at full resolution.
//
// Edges: the mean over the model's points of  |g| / max(|g|, contrast) cos a , where g is the
// gradient (Sobel, interpolated linearly between pixels) at the point's place and a its angle to
// the turned direction; with Polarity::kAny cos 2 a, which is the same for opposite directions.
// Directions by chance come to nothing. Points outside of the picture count as nothing.
//
// Grey: the template is cut into cells of at least 8 x 8 pixels, at most 6 x 6 of them. The score
// is the mean of the cells' normalised correlations with the picture, interpolated linearly, those
// below 0 as 0, each weighted by the template's contrast in it (deviation times pixels) and by the
// share of its pixels that lie in the picture. So light may change over the template, and a cover
// takes its share and no more.
//
// 0 also where memory is short.
double Score(const FinderKernels& kernels, const Model& model, const Picture& picture,
             const Pose& pose, Polarity polarity);

// One file: a magic number, a version, the way to look, the picture, its mask, and a checksum. The
// bytes are the same on every platform. Load refuses what Save did not write; the model is left
// untaught.
Status Save(const Model& model, Buffer<uint8_t>& bytes);
bool IsModelFile(std::span<const uint8_t> bytes);  // by its first bytes, damaged or not
Status Load(const FinderKernels& kernels, std::span<const uint8_t> bytes, Model& model);

}  // namespace quillon::finder
