// The benchmark program: families add their rows, Google Benchmark runs them.
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>

#include "families.h"

int main(int argc, char** argv) {
  cv::setNumThreads(1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  quillon::bench::AddArithmetic();
  quillon::bench::AddPointOperations();
  quillon::bench::AddBlobOperations();
  quillon::bench::AddMorphOperations();
  quillon::bench::AddNeighbourhoodFilters();
  quillon::bench::AddEdgeMatching();
  quillon::bench::AddSmoothingOperations();
  quillon::bench::AddTemplateMatching();
  quillon::bench::AddCalibration();
  benchmark::RunSpecifiedBenchmarks();
}
