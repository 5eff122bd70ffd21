// The sweep by grey values: how a turned template correlates with the picture, at every place.
#pragma once

#include "finder/score_map.h"
#include "finder/sweep.h"

namespace quillon::finder {

// A template turned and scaled: what each pixel of the level would show, where the template covers
// it, and to which of its parts the pixel belongs.
struct TurnedTemplate {
  int left, top, width, height;  // around the centre's pixel
  Buffer<float> values;          // below 0: not covered
  Buffer<uint8_t> parts;
};

// The template is correlated in parts, each of which adds no more than its share to the score: what
// covers one of them leaves the score of the others as it is.
constexpr int kSweepParts = 4;

class GreySweep {
 public:
  // False when memory is short.
  bool Open(const SweepTask& task);
  uint16_t ScoreOf(float share) const { return static_cast<uint16_t>(1000 * share); }
  float ShareOf(uint16_t score) const { return static_cast<float>(score) / 1000; }
  bool Fill(const Pose& pose, ScoreMap& map);

 private:
  bool Turn(const Pose& pose, TurnedTemplate& turned) const;
  bool MakePart(const TurnedTemplate& turned, int number);

  struct Part {
    size_t firstWeight = 0, weights = 0, firstRun = 0, runs = 0;
    double norm = 0;  // of the weights
    int pixels = 0;   // 0: the part is even, or has hardly a pixel, and does not count
    double contrast = 0;
  };

  const SweepTask* task_ = nullptr;
  int width_ = 0, height_ = 0, margin_ = 0, stride_ = 0;
  Buffer<uint32_t> pairs_;
  Buffer<int32_t> prefix_, squarePrefix_;
  List<FootprintRun> runs_;
  List<WeightPair> weights_;
  Part parts_[kSweepParts];
};

}  // namespace quillon::finder
