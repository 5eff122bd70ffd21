// Parameters that make the sum of squared residuals least: Levenberg's and Marquardt's method, with
// each parameter's damping scaled by its own curvature.
#pragma once

#include <functional>
#include <span>
#include <vector>

namespace quillon::kit {

// Sets all residuals of these parameters.
using Residuals = std::function<void(std::span<const double> parameters, std::span<double> out)>;

// Improves the parameters, and returns the sum of squares that is left. Derivatives are central
// differences of `step` each. Parameters that the residuals do not tell stay where they are.
double Minimise(const Residuals& residuals, size_t count, double step,
                std::vector<double>& parameters, int mostSteps = 50);

// Solves a * x = b for a symmetric, positive definite matrix, by Cholesky's method; x comes in b.
// False where the matrix is not positive definite.
bool SolveSymmetric(std::vector<double>& a, std::vector<double>& b);

}  // namespace quillon::kit
