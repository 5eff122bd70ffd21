// The quadric through the scores around a match, and its peak.
#pragma once

namespace quillon {

// value(u, v, w) = constant + linear . (u, v, w) + square . (u^2, v^2, w^2)
//                + cross . (uv, uw, vw)
struct GeoQuadric {
  double constant;
  double linear[3], square[3], cross[3];

  double Value(double u, double v, double w) const;
};

// The least-squares fit to 27 scores; scores[i][j][k] is that at w = i - 1, v = j - 1, u = k - 1.
GeoQuadric FitGeoQuadric(const double (&scores)[3][3][3]);

// The w of the peak, where w = 1 stands for `degrees`: the quadric's stationary point or, without
// one, the best point of a grid over the samples' box; then the best point of two finer grids
// around it, the box its limit. Grids are in pixels and degrees.
double SolveGeoQuadric(const GeoQuadric& quadric, double degrees);

}  // namespace quillon
