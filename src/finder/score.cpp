// The score of a pose on its own, without a search.
#include "finder/refine.h"

namespace quillon::finder {

double Score(const FinderKernels& kernels, const Model& model, const Picture& picture,
             const Pose& pose, Polarity polarity) {
  Planes planes;
  if (!planes.Open(kernels, picture, 1)) return 0;
  Buffer<float> unused;
  const RefineTask task = {kernels, model, planes, unused, {}, polarity == Polarity::kAny, 0, 0, 0};
  Rating rating = {};
  const bool rated =
      model.way == Way::kGrey ? RateByGrey(task, pose, rating) : RateByEdges(task, pose, rating);
  return rated ? rating.score : 0;
}

}  // namespace quillon::finder
