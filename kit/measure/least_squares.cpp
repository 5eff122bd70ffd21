#include "kit/measure/least_squares.h"

#include <algorithm>
#include <cmath>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

double SumOfSquares(std::span<const double> values) {
  double sum = 0;
  for (const double value : values) sum += value * value;
  return sum;
}

// The normal equations: curvature = J^T J, slope = J^T r, with J from central differences.
struct Normal {
  std::vector<double> curvature, slope;

  Normal(const Residuals& residuals, std::span<const double> r, double step,
         std::vector<double>& p) {
    const size_t n = p.size(), count = r.size();
    std::vector<double> jacobian(n * count), ahead(count), behind(count);  // a row each parameter
    for (size_t i = 0; i < n; ++i) {
      const double kept = p[i];
      p[i] = kept + step;
      residuals(p, ahead);
      p[i] = kept - step;
      residuals(p, behind);
      p[i] = kept;
      for (size_t k = 0; k < count; ++k) {
        jacobian[i * count + k] = (ahead[k] - behind[k]) / (2 * step);
      }
    }
    curvature.resize(n * n);
    slope.resize(n);
    for (size_t i = 0; i < n; ++i) {
      const double* a = &jacobian[i * count];
      for (size_t k = 0; k < count; ++k) slope[i] += a[k] * r[k];
      for (size_t j = 0; j <= i; ++j) {
        const double* b = &jacobian[j * count];
        double sum = 0;
        for (size_t k = 0; k < count; ++k) sum += a[k] * b[k];
        curvature[i * n + j] = curvature[j * n + i] = sum;
      }
    }
  }
};

}  // namespace

bool SolveSymmetric(std::vector<double>& a, std::vector<double>& b) {
  const size_t n = b.size();
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j <= i; ++j) {
      double sum = a[i * n + j];
      for (size_t k = 0; k < j; ++k) sum -= a[i * n + k] * a[j * n + k];
      if (i != j) {
        a[i * n + j] = sum / a[j * n + j];
      } else if (sum > 0) {
        a[i * n + i] = std::sqrt(sum);
      } else {
        return false;
      }
    }
  }
  for (size_t i = 0; i < n; ++i) {
    for (size_t k = 0; k < i; ++k) b[i] -= a[i * n + k] * b[k];
    b[i] /= a[i * n + i];
  }
  for (size_t i = n; i-- > 0;) {
    for (size_t k = i + 1; k < n; ++k) b[i] -= a[k * n + i] * b[k];
    b[i] /= a[i * n + i];
  }
  return true;
}

double Minimise(const Residuals& residuals, size_t count, double step,
                std::vector<double>& parameters, int mostSteps) try {
  constexpr double kLeastDamping = 1e-9, kMostDamping = 1e9, kSettled = 1e-12;
  const size_t n = parameters.size();
  std::vector<double> r(count), tried(count), candidate(n);
  residuals(parameters, r);
  double sum = SumOfSquares(r), damping = 1e-3;
  for (int steps = 0; steps < mostSteps; ++steps) {
    const Normal normal(residuals, r, step, parameters);
    double gain = 0;
    for (bool better = false; !better && damping < kMostDamping;) {
      std::vector<double> a = normal.curvature, change = normal.slope;
      for (size_t i = 0; i < n; ++i) a[i * n + i] += damping * a[i * n + i] + 1e-300;
      if (!SolveSymmetric(a, change)) {
        damping *= 10;
        continue;
      }
      for (size_t i = 0; i < n; ++i) candidate[i] = parameters[i] - change[i];
      residuals(candidate, tried);
      const double reached = SumOfSquares(tried);
      better = reached < sum;
      damping = better ? std::max(damping / 10, kLeastDamping) : damping * 10;
      if (!better) continue;
      gain = sum - reached;
      sum = reached;
      parameters.swap(candidate);
      r.swap(tried);
    }
    if (!(gain > kSettled * sum)) break;
  }
  return sum;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a fit by least squares");
}

}  // namespace quillon::kit
