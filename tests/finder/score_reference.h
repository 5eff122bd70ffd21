// The finder's scores as their definitions say, pixel by pixel.
#pragma once

#include <algorithm>
#include <cmath>

#include "finder/finder.h"

namespace quillon::reference {

inline int PixelAt(const finder::Picture& picture, int x, int y) {
  return picture.pixels[y * picture.stride + x];
}

// The 3 x 3 Sobel sums; zero at the border.
inline void GradientAt(const finder::Picture& p, int x, int y, double& gx, double& gy) {
  gx = gy = 0;
  if (x < 1 || y < 1 || x > p.width - 2 || y > p.height - 2) return;
  for (int i = -1; i <= 1; ++i) {
    const int weight = 2 - std::abs(i);
    gx += weight * (PixelAt(p, x + 1, y + i) - PixelAt(p, x - 1, y + i));
    gy += weight * (PixelAt(p, x + i, y + 1) - PixelAt(p, x + i, y - 1));
  }
}

// Calls add(pixel x, pixel y, weight) for the four pixels around a place. False outside.
template <class Add>
bool AroundPlace(const finder::Picture& p, double x, double y, const Add& add) {
  if (x < 0 || y < 0 || x > p.width - 1 || y > p.height - 1) return false;
  const int left = std::min(static_cast<int>(x), p.width - 2);
  const int top = std::min(static_cast<int>(y), p.height - 2);
  for (int i = 0; i < 4; ++i) {
    const int px = left + i % 2, py = top + i / 2;
    add(px, py, (1 - std::abs(x - px)) * (1 - std::abs(y - py)));
  }
  return true;
}

inline double EdgeScore(const finder::Model& model, const finder::Picture& picture,
                        const finder::Match& at, bool anyPolarity) {
  const double a = at.degrees * 3.14159265358979323846 / 180, c = std::cos(a), s = std::sin(a);
  double sum = 0;
  for (const ModelPoint& point : model.level[0].points) {
    double gx = 0, gy = 0;
    AroundPlace(picture, at.x + at.scale * (c * point.u - s * point.v),
                at.y + at.scale * (s * point.u + c * point.v), [&](int x, int y, double weight) {
                  double px, py;
                  GradientAt(picture, x, y, px, py);
                  gx += weight * px;
                  gy += weight * py;
                });
    const double length = std::hypot(gx, gy);
    if (length == 0) continue;
    const double cosine =
        (gx * (c * point.p - s * point.q) + gy * (s * point.p + c * point.q)) / length;
    const double clear = length / std::max(length, static_cast<double>(model.level[0].contrast));
    sum += clear * (anyPolarity ? 2 * cosine * cosine - 1 : cosine);
  }
  return sum / static_cast<double>(model.level[0].points.size());
}

// The correlation of each cell, not below 0, weighted by the template's contrast in it and by the
// share of it that lies in the picture.
inline double GreyScore(const finder::Model& model, const finder::Picture& picture,
                        const finder::Match& at) {
  const double a = at.degrees * 3.14159265358979323846 / 180, c = std::cos(a), s = std::sin(a);
  const int across = std::clamp(model.width / 8, 1, 6), down = std::clamp(model.height / 8, 1, 6);
  double weights = 0, sum = 0;
  for (int cell = 0; cell < across * down; ++cell) {
    std::vector<double> own, seen, all;
    for (int y = 0; y < model.height; ++y) {
      for (int x = 0; x < model.width; ++x) {
        // The cell of the pixel's centre.
        const int column = static_cast<int>((x + 0.5) * across / model.width);
        const int row = static_cast<int>((y + 0.5) * down / model.height);
        const size_t index = static_cast<size_t>(y) * model.width + x;
        if (row * across + column != cell || (model.mask && model.mask[index] == 0)) continue;
        const double u = x - (model.width - 1) / 2.0, v = y - (model.height - 1) / 2.0;
        all.push_back(model.pixels[index]);
        double value = 0;
        const bool inside = AroundPlace(
            picture, at.x + at.scale * (c * u - s * v), at.y + at.scale * (s * u + c * v),
            [&](int px, int py, double weight) { value += weight * PixelAt(picture, px, py); });
        if (!inside) continue;
        own.push_back(model.pixels[index]);
        seen.push_back(value);
      }
    }
    if (all.size() < 3) continue;
    const auto covariance = [](const std::vector<double>& p, const std::vector<double>& q) {
      double meanP = 0, meanQ = 0, products = 0;
      const auto n = static_cast<double>(p.size());
      for (size_t i = 0; i < p.size(); ++i) meanP += p[i] / n, meanQ += q[i] / n;
      for (size_t i = 0; i < p.size(); ++i) products += (p[i] - meanP) * (q[i] - meanQ);
      return products / n;
    };
    const double contrast = static_cast<double>(all.size()) * std::sqrt(covariance(all, all));
    weights += contrast;
    if (own.size() < 3) continue;
    const double varianceOwn = covariance(own, own), varianceSeen = covariance(seen, seen);
    if (varianceOwn <= 1.0 / 16 || varianceSeen <= 1.0 / 16) continue;
    const double share = static_cast<double>(own.size()) / static_cast<double>(all.size());
    const double correlation = covariance(own, seen) / std::sqrt(varianceOwn * varianceSeen);
    sum += contrast * share * std::max(correlation, 0.0);
  }
  return weights > 0 ? sum / weights : 0;
}

}  // namespace quillon::reference
