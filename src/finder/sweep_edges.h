// The sweep by edges: how well a turned template's edge points agree with the picture, at every
// place.
#pragma once

#include <span>

#include "finder/score_map.h"
#include "finder/sweep.h"

namespace quillon::finder {

constexpr int kEdgeDirections = 16;

// Of the directions that there is a plane for.
class AllDirections {
 public:
  AllDirections() {
    for (int i = 0; i < kEdgeDirections; ++i) all_[i] = DirectionOf(i * 360.0 / kEdgeDirections);
  }
  const Direction& operator[](int i) const { return all_[i]; }
  int Nearest(double p, double q) const;

 private:
  Direction all_[kEdgeDirections];
};

// One plane per direction: how far the picture's gradient agrees with it. Around the picture lies a
// margin in which nothing agrees.
class AgreementMaps {
 public:
  // False when memory is short.
  bool Open(const SweepTask& task, const AllDirections& directions, int reach);
  // The place of a pixel in the plane of a direction.
  size_t At(int direction, int x, int y) const {
    const int plane = any_ ? direction % (kEdgeDirections / 2) : direction;
    return plane * plane_ + static_cast<size_t>(y + margin_) * stride_ + (x + margin_);
  }
  const uint8_t* data() const { return maps_.data(); }
  int Stride() const { return stride_; }

 private:
  Buffer<uint8_t> maps_;
  size_t plane_ = 0;
  int margin_ = 0, stride_ = 0;
  bool any_ = false;
};

class EdgeSweep {
 public:
  // False when memory is short.
  bool Open(const SweepTask& task);
  uint16_t ScoreOf(float share) const;
  float ShareOf(uint16_t score) const;
  bool Fill(const Pose& pose, ScoreMap& map);

  // How many points it adds at each place.
  static size_t PointsOf(const ModelLevel& level);

 private:
  const SweepTask* task_ = nullptr;
  std::span<const ModelPoint> points_;
  AllDirections directions_;
  AgreementMaps maps_;
};

}  // namespace quillon::finder
