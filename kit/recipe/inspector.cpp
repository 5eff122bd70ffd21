#include "kit/recipe/inspector.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/images/pixels.h"
#include "kit/operations/places.h"

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

// The value of several things. A thing that was not found has no number: where one of them is such
// a thing, there is no value, for nobody knows which the first or the smallest would have been.
std::optional<double> Pick(Which which, const std::vector<double>& values) {
  if (std::any_of(values.begin(), values.end(), [](double v) { return !std::isfinite(v); })) {
    return {};
  }
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

// The things of two steps in pairs: the first with the first, the second with the second; where one
// step found one thing alone, that with each of the others. Nothing where there are, say, two and
// three of them.
using Pair = std::pair<const Thing*, const Thing*>;
std::optional<std::vector<Pair>> Pairs(const std::vector<Thing>& a, const std::vector<Thing>& b) {
  if (a.size() != b.size() && a.size() != 1 && b.size() != 1) return {};
  const size_t count = std::min(a.size(), b.size()) == 0 ? 0 : std::max(a.size(), b.size());
  std::vector<Pair> pairs;
  for (size_t i = 0; i < count; ++i) {
    pairs.emplace_back(&a[std::min(i, a.size() - 1)], &b[std::min(i, b.size() - 1)]);
  }
  return pairs;
}

// The argument that names a file, for messages about it.
std::string FileField(const Operation& operation) {
  for (const Argument& argument : operation.arguments) {
    if (argument.IsOfFiles()) {
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

Inspector::Inspector(const Recipe& recipe, const Sources& sources) try
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
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a recipe");
}

ReadyOperation Inspector::Prepare(const Step& step, const Values& values) const {
  try {
    return {*step.operation, values, sources_};
  } catch (const OutOfMemory& lack) {
    throw OutOfMemory("step '" + step.name + "'", lack.Wanted());
  } catch (const Failure& failure) {
    throw Failure("step '" + step.name + "'" + FileField(*step.operation) + ": " + failure.what());
  }
}

void Inspector::Run(size_t number, const std::string& image) {
  const Step& step = recipe_.steps[number];
  if (step.valuesOf) ready_[number] = Prepare(step, step.valuesOf(image));
  // The colours of a grey image were made of it: what takes grey pictures too gets the image
  // itself.
  const auto view = [&](int slot) {
    const Content& content = Of(slot == kColourSlot && !isColour_ ? kImageSlot : slot);
    return PictureView{&content.picture, &Of(slot).colour};
  };
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  try {
    const PictureView a = view(step.inputs.front()), b = view(step.inputs.back());
    Content& result = contents_[static_cast<size_t>(step.output)];
    if (step.follows.empty()) {
      ready_[number]->Run(a, b, result);
    } else {
      ready_[number]->RunAt(FramesOf(step), a, b, result);
    }
  } catch (const OutOfMemory& lack) {
    throw OutOfMemory("step '" + step.name + "'", lack.Wanted());
  } catch (const Failure& failure) {
    throw Failure("step '" + step.name + "': " + failure.what());
  }
  milliseconds_[number] = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// For a step that follows things: where its places lie in this image, once for each thing.
std::vector<std::optional<Frame>> Inspector::FramesOf(const Step& step) const {
  std::vector<std::optional<Frame>> frames;
  const std::vector<Thing>& first = Of(step.follows.front()).things;
  if (step.follows.size() == 1) {
    for (const Thing& thing : first) frames.push_back(FrameOf(thing));
    return frames;
  }
  const std::vector<Thing>& second = Of(step.follows.back()).things;
  if (first.empty() || second.empty()) return {};
  const auto pairs = Pairs(first, second);
  if (!pairs) {
    throw Failure("it follows " + std::to_string(first.size()) + " and " +
                  std::to_string(second.size()) + " things, which do not go together");
  }
  const auto kindOf = [&](int slot) { return recipe_.slots[static_cast<size_t>(slot)].kind; };
  for (const auto& [one, other] : *pairs) {
    frames.push_back(
        FrameOf(*one, kindOf(step.follows.front()), *other, kindOf(step.follows.back())));
  }
  return frames;
}

double Inspector::MmPerPixel(int slot) const {
  const int frame = recipe_.slots[static_cast<size_t>(slot)].frame;
  if (frame == 0) return recipe_.mmPerPixel;
  for (size_t i = 0; i < recipe_.steps.size(); ++i) {
    const Step& step = recipe_.steps[i];
    if (!step.operation->knowsScale ||
        recipe_.slots[static_cast<size_t>(step.output)].frame != frame) {
      continue;
    }
    for (const Detail& detail : ready_[i]->Details()) {
      if (std::string_view(detail.key) == kScaleDetail) return detail.value;
    }
  }
  return 0;
}

std::optional<double> Inspector::Measure(const Measurement& measurement,
                                         const std::vector<std::optional<double>>& before) const {
  if (measurement.formula) return measurement.formula->Value(before);
  const Content& content = Of(measurement.input);
  if (recipe_.slots[static_cast<size_t>(measurement.input)].kind == Kind::kPicture) {
    return MeanOf(content.picture);
  }
  if (measurement.quantity && !measurement.quantity->member) {
    return static_cast<double>(std::count_if(content.things.begin(), content.things.end(),
                                             [](const Thing& thing) { return IsThere(thing); }));
  }
  std::vector<double> values;
  if (measurement.quantity) {
    for (const Thing& thing : content.things) {
      values.push_back(IsThere(thing) ? thing.*measurement.quantity->member : NAN);
    }
  } else {
    const auto pairs = Pairs(content.things, Of(measurement.other).things);
    if (!pairs) return {};
    for (const auto& [one, other] : *pairs) {
      values.push_back(measurement.between->value(*one, *other).value_or(NAN));
    }
  }
  std::optional<double> value = Pick(measurement.which, values);
  for (int power = 0; value && power < measurement.unit.mm; ++power) {
    *value *= MmPerPixel(measurement.input);
  }
  return value;
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
    if (!image.bits) throw Failure("the picture has no pixels");
    CopyPicture(image, grey);
    colour.Destroy();
  });
}

ImageRecord Inspector::Inspect(const ColourImage& image, const std::string& name) {
  return Inspect(name, [&](GreyImage& grey, ColourImage& colour) {
    if (!image.bits) throw Failure("the picture has no pixels");
    CopyPicture(image, colour);
    IxColorToGray(&colour, &grey);
    RequirePixels(grey);
  });
}

// `fill` makes the image in grey, and in colour where it has any.
template <class Fill>
ImageRecord Inspector::Inspect(const std::string& name, Fill fill) try {
  ImageRecord record = {.image = name};
  record.values.resize(recipe_.measurements.size());
  Verdict failure = Verdict::kUnreadable;
  stepsDone_.reset();
  try {
    WithinMemory("'" + name + "'", [&] {
      GreyImage& grey = contents_[kImageSlot].picture;
      ColourImage& colour = contents_[kColourSlot].colour;
      fill(grey, colour);
      isColour_ = colour.bits;
      if (usesColour_ && !isColour_) ToColour(grey, colour);
      failure = Verdict::kError;
      for (stepsDone_ = 0; *stepsDone_ < recipe_.steps.size(); ++*stepsDone_) {
        Run(*stepsDone_, name);
      }
    });
  } catch (const std::exception& error) {
    record.verdict = dynamic_cast<const OutOfMemory*>(&error) ? Verdict::kError : failure;
    record.error = error.what();
    return record;
  }
  for (size_t i = 0; i < recipe_.measurements.size(); ++i) {
    const Measurement& measurement = recipe_.measurements[i];
    std::optional<double> value = Measure(measurement, record.values);
    if (value && !std::isfinite(*value)) value.reset();
    if (!Passes(measurement, value)) record.verdict = Verdict::kFail;
    record.values[i] = value;
  }
  return record;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the record of an image");
}

}  // namespace quillon::kit::recipe
