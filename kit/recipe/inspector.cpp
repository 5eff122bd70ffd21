#include "kit/recipe/inspector.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <new>

#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/images/pixels.h"

namespace quillon::kit::recipe {
namespace {

// Grey in all three channels.
void ToColour(const GreyImage& grey, ColourImage& colour) {
  colour.Create(grey.width, grey.height);
  RequirePixels(colour);
  for (int y = 0; y < colour.height; ++y) {
    for (int x = 0; x < colour.width; ++x) std::fill_n(colour.rows[y] + 3 * x, 3, grey.rows[y][x]);
  }
}

std::optional<double> MeanOf(const GreyImage& image) {
  if (!image.bits) return {};
  int64_t sum = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) sum += image.rows[y][x];
  }
  return static_cast<double>(sum) / (static_cast<double>(image.width) * image.height);
}

std::optional<double> Pick(Which which, const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  if (which == Which::kSum) return sum;
  if (values.empty()) return {};
  switch (which) {
    case Which::kFirst:
      return values[0];
    case Which::kSmallest:
      return *std::min_element(values.begin(), values.end());
    case Which::kLargest:
      return *std::max_element(values.begin(), values.end());
    default:
      return sum / static_cast<double>(values.size());
  }
}

std::optional<double> Measure(const Measurement& measurement, Kind kind, const Content& content) {
  if (kind == Kind::kPicture) return MeanOf(content.picture);
  if (!measurement.quantity->member) return static_cast<double>(content.things.size());
  std::vector<double> values;
  for (const Thing& thing : content.things) values.push_back(thing.*measurement.quantity->member);
  return Pick(measurement.which, values);
}

// The argument that names a file, for messages about it.
std::string FileField(const Operation& operation) {
  for (const Argument& argument : operation.arguments) {
    if (argument.type == Argument::Type::kFile || argument.type == Argument::Type::kFiles) {
      return std::string(", field '") + argument.name + "'";
    }
  }
  return "";
}

}  // namespace

const char* NameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass:
      return "pass";
    case Verdict::kFail:
      return "fail";
    case Verdict::kUnreadable:
      return "unreadable";
    case Verdict::kError:
      return "error";
  }
  return "";
}

bool Passes(const Measurement& measurement, const std::optional<double>& value) {
  const auto& [min, max] = std::pair(measurement.min, measurement.max);
  if (!min && !max) return true;
  return value && !(min && !(*value >= *min)) && !(max && !(*value <= *max));
}

Inspector::Inspector(const Recipe& recipe, const Sources& sources)
    : recipe_(recipe),
      sources_(sources),
      contents_(std::make_unique<Content[]>(recipe.slots.size())),
      milliseconds_(recipe.steps.size()) {
  usesColour_ = std::any_of(recipe.steps.begin(), recipe.steps.end(), [](const Step& step) {
    return std::find(step.inputs.begin(), step.inputs.end(), kColourSlot) != step.inputs.end();
  });
  for (const Step& step : recipe.steps) {
    ready_.emplace_back();
    if (!step.valuesOf) ready_.back() = Prepare(step, step.values);
  }
}

ReadyOperation Inspector::Prepare(const Step& step, const Values& values) const {
  try {
    return {*step.operation, values, sources_};
  } catch (const Failure& failure) {
    throw Failure("step '" + step.name + "'" + FileField(*step.operation) + ": " + failure.what());
  }
}

void Inspector::Run(size_t number, const std::string& image) {
  const Step& step = recipe_.steps[number];
  if (step.valuesOf) ready_[number] = Prepare(step, step.valuesOf(image));
  const auto view = [&](int slot) {
    const Content& content = Of(slot);
    return PictureView{&content.picture, &content.colour};
  };
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  try {
    ready_[number]->Run(view(step.inputs.front()), view(step.inputs.back()),
                        contents_[static_cast<size_t>(step.output)]);
  } catch (const Failure& failure) {
    throw Failure("step '" + step.name + "': " + failure.what());
  }
  milliseconds_[number] = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

ImageRecord Inspector::Inspect(const std::string& path) {
  return Inspect(path, [&](GreyImage& grey, ColourImage& colour) {
    ReadImage(path, grey, colour, sources_.reading);
  });
}

ImageRecord Inspector::InspectFile(std::span<const unsigned char> file, const std::string& name) {
  return Inspect(name, [&](GreyImage& grey, ColourImage& colour) {
    DecodeImage(file, name, grey, colour, sources_.reading);
  });
}

ImageRecord Inspector::Inspect(const GreyImage& image, const std::string& name) {
  return Inspect(name, [&](GreyImage& grey, ColourImage& colour) {
    grey.CopyFrom(&image);
    colour.Destroy();
    if (!grey.bits) throw Failure("the picture has no pixels");
  });
}

ImageRecord Inspector::Inspect(const ColourImage& image, const std::string& name) {
  return Inspect(name, [&](GreyImage& grey, ColourImage& colour) {
    colour.CopyFrom(&image);
    IxColorToGray(&colour, &grey);
    if (!grey.bits) throw Failure("the picture has no pixels");
  });
}

// `fill` makes the image in grey, and in colour where it has any.
template <class Fill>
ImageRecord Inspector::Inspect(const std::string& name, Fill fill) {
  ImageRecord record = {.image = name};
  record.values.resize(recipe_.measurements.size());
  Verdict failure = Verdict::kUnreadable;
  try {
    GreyImage& grey = contents_[kImageSlot].picture;
    ColourImage& colour = contents_[kColourSlot].colour;
    fill(grey, colour);
    isColour_ = colour.bits;
    if (usesColour_ && !isColour_) ToColour(grey, colour);
    failure = Verdict::kError;
    for (size_t i = 0; i < recipe_.steps.size(); ++i) Run(i, name);
  } catch (const std::bad_alloc&) {
    record.verdict = Verdict::kError;
    record.error = "there is not enough memory for '" + name + "'";
    return record;
  } catch (const std::exception& error) {
    record.verdict = failure;
    record.error = error.what();
    return record;
  }
  for (size_t i = 0; i < recipe_.measurements.size(); ++i) {
    const Measurement& measurement = recipe_.measurements[i];
    const auto slot = static_cast<size_t>(measurement.input);
    std::optional<double> value = Measure(measurement, recipe_.slots[slot].kind, contents_[slot]);
    if (value && !std::isfinite(*value)) value.reset();
    if (!Passes(measurement, value)) record.verdict = Verdict::kFail;
    record.values[i] = value;
  }
  return record;
}

}  // namespace quillon::kit::recipe
