// One image through a recipe.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/recipe/recipe.h"
#include "kit/report/findings.h"

namespace quillon::kit::recipe {

enum class Verdict {
  kPass,
  kFail,        // a measurement is outside its limits, or there was nothing to measure
  kUnreadable,  // the file is no image
  kError,       // a step could not be done with this image
};
const char* NameOf(Verdict verdict);

// What is known of an image when it was inspected.
struct ImageRecord {
  std::string image;
  Verdict verdict = Verdict::kPass;
  std::vector<std::optional<double>> values = {};  // one for each measurement; none: nothing there
  std::string error = {};                          // why it is unreadable, or which step failed
  std::vector<std::vector<Cell>> objects = {};     // rows of objects.h, where they are asked for
};

// Whether a value is within the limits. Without limits everything is, nothing included.
bool Passes(const Measurement& measurement, const std::optional<double>& value);

// Inspects one image after the other: one object for each thread, each with its recipe beside it.
// Holds what the steps keep, and the contents of all names for the image that was inspected last:
//
//   const ImageRecord record = inspector.Inspect(image);
//   for (const Step& step : recipe.steps) Use(step.name, inspector.Of(step.output).things);
class Inspector {
 public:
  // Teaches templates and loads parameters, but those that differ from image to image. Throws
  // Failure with step and field.
  Inspector(const Recipe& recipe, const Sources& sources);

  ImageRecord Inspect(const std::string& path);
  // The bytes of an image file; `name` stands in the record.
  ImageRecord InspectFile(std::span<const unsigned char> file, const std::string& name);
  // A picture in memory, which is copied; `name` stands in the record.
  ImageRecord Inspect(const GreyImage& image, const std::string& name = "");
  ImageRecord Inspect(const ColourImage& image, const std::string& name = "");

  // What a slot holds since the last image: pictures, things. Where a step failed, those after it
  // hold what they held before.
  const Content& Of(int slot) const { return contents_[static_cast<size_t>(slot)]; }
  bool IsColour() const { return isColour_; }  // the file; "color" may be made from grey
  // How many steps were done with the last image, all before the one that failed; nothing where
  // not even the image could be read.
  std::optional<size_t> StepsDone() const { return stepsDone_; }

  // How long a step took with the last image, and what it tells besides its result.
  double Milliseconds(size_t step) const { return milliseconds_[step]; }
  std::vector<Detail> Details(size_t step) const {
    return ready_[step] ? ready_[step]->Details() : std::vector<Detail>();
  }
  // A step that was done, with what it keeps of the last image.
  const ReadyOperation& Done(size_t step) const { return *ready_[step]; }

 private:
  template <class Fill>
  ImageRecord Inspect(const std::string& name, Fill fill);
  ReadyOperation Prepare(const Step& step, const Values& values) const;
  void Run(size_t step, const std::string& image);
  std::vector<std::optional<Frame>> FramesOf(const Step& step) const;
  std::optional<double> Measure(const Measurement& measurement,
                                const std::vector<std::optional<double>>& before) const;
  double MmPerPixel(int slot) const;

  const Recipe& recipe_;
  Sources sources_;
  bool usesColour_;
  bool isColour_ = false;
  std::optional<size_t> stepsDone_;
  std::unique_ptr<Content[]> contents_;  // images cannot be moved
  // One for each step; nothing until there is an image to prepare it for.
  std::vector<std::optional<ReadyOperation>> ready_;
  std::vector<double> milliseconds_;
};

}  // namespace quillon::kit::recipe
