// Recipes over arrays.
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "arrays.h"
#include "families.h"
#include "kit/errors.h"
#include "kit/recipe/inspector.h"
#include "kit/recipe/objects.h"
#include "kit/recipe/results.h"
#include "kit/recipe/run_pages.h"
#include "results.h"
#include "things.h"

namespace quillon::python {
namespace {

namespace recipe = kit::recipe;

// What a step made of an image, copied out of the inspector.
struct StepOutput {
  std::unique_ptr<GreyImage> picture;
  std::unique_ptr<ColourImage> colour;
  std::vector<kit::Thing> things;
};

template <class Pixel>
std::unique_ptr<CImage<Pixel>> Copied(const CImage<Pixel>& image) {
  auto copy = std::make_unique<CImage<Pixel>>();
  copy->CopyFrom(&image);
  if (!copy->bits) throw std::bad_alloc();
  return copy;
}

class Recipe {
 public:
  Recipe(const py::object& given, const py::object& folder) {
    std::string base = folder.is_none() ? "" : FileNameOf(folder);
    if (py::isinstance<py::dict>(given)) {
      const auto text = py::module_::import("json").attr("dumps")(given).cast<std::string>();
      recipe_ = recipe::MakeRecipe(text);
    } else {
      const std::string path = FileNameOf(given);
      recipe_ = recipe::ReadRecipe(path);
      if (folder.is_none()) base = std::filesystem::path(path).parent_path().string();
    }
    sources_ = kit::Sources(base, notes_.Reading());
    free_.push_back(Unlocked([&] { return Made(); }));
    notes_.Tell();
  }

  py::tuple Run(const Array& image, bool withPictures) {
    return IsColour(image) ? RunOn<RGB_24>(image, withPictures)
                           : RunOn<unsigned char>(image, withPictures);
  }

  // The line of `quillon run` for an image, from its file, or from the bytes of one; and its page
  // in a folder, where there is one.
  std::string Record(const py::object& name, const py::object& data, bool withObjects,
                     const std::string& pageFolder, size_t index) {
    const std::string path = FileNameOf(name);
    std::string_view bytes;
    if (!data.is_none()) bytes = py::reinterpret_borrow<py::bytes>(data);
    return Unlocked([&] {
      const Turn turn(*this);
      recipe::ImageRecord record =
          bytes.data()
              ? turn->InspectFile(
                    {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, path)
              : turn->Inspect(path);
      if (withObjects && record.error.empty()) {
        record.objects = ObjectRows(AllFound(recipe_, *turn), KindsOfThings(recipe_));
      }
      if (!pageFolder.empty()) recipe::Pages(recipe_, pageFolder).Write(index, record, *turn);
      return ToLine(recipe_, record, withObjects);
    });
  }

  const std::string& Name() const { return recipe_.name; }

 private:
  template <class Pixel>
  py::tuple RunOn(const Array& image, bool withPictures) {
    const Source<Pixel> source(image, "image");
    recipe::ImageRecord record;
    std::vector<StepOutput> outputs;
    Unlocked([&] {
      const Turn turn(*this);
      record = turn->Inspect(*source.get(), "image");
      if (record.error.empty()) outputs = Outputs(*turn, withPictures);
    });
    if (!record.error.empty()) throw py::value_error(record.error);
    return Result(record, std::move(outputs));
  }

  std::vector<StepOutput> Outputs(const recipe::Inspector& inspector, bool withPictures) const {
    std::vector<StepOutput> outputs;
    for (const recipe::Step& step : recipe_.steps) {
      const kit::Content& content = inspector.Of(step.output);
      StepOutput& output = outputs.emplace_back();
      output.things = content.things;
      if (!withPictures) continue;
      if (content.picture.bits) output.picture = Copied(content.picture);
      if (content.colour.bits) output.colour = Copied(content.colour);
    }
    return outputs;
  }

  py::tuple Result(const recipe::ImageRecord& record, std::vector<StepOutput> outputs) const {
    py::dict measurements, objects, pictures;
    py::list failed;
    for (size_t i = 0; i < recipe_.measurements.size(); ++i) {
      const recipe::Measurement& measurement = recipe_.measurements[i];
      const std::optional<double>& value = record.values[i];
      measurements[measurement.name.c_str()] = value ? py::object(py::float_(*value)) : py::none();
      if (!Passes(measurement, value)) failed.append(measurement.name);
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
      const recipe::Step& step = recipe_.steps[i];
      const char* const name = step.name.c_str();
      StepOutput& output = outputs[i];
      if (!kit::IsPicture(step.operation->output)) {
        objects[name] = ThingsArray(step.operation->output, output.things);
      } else if (output.picture) {
        pictures[name] = ToArray(std::move(output.picture));
      } else if (output.colour) {
        pictures[name] = ToArray(std::move(output.colour));
      }
    }
    return Named("Inspection", NameOf(record.verdict), measurements, failed, objects, pictures);
  }

  using Inspectors = std::vector<std::unique_ptr<recipe::Inspector>>;

  // An inspector for one image: a free one, or, when other threads have all of them, one more.
  class Turn {
   public:
    explicit Turn(Recipe& recipe) : recipe_(recipe), inspector_(recipe.TakeFree()) {
      if (!inspector_) inspector_ = recipe.Made();
    }
    ~Turn() {
      const std::lock_guard lock(recipe_.mutex_);
      recipe_.free_.push_back(std::move(inspector_));
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    recipe::Inspector* operator->() const { return inspector_.get(); }
    recipe::Inspector& operator*() const { return *inspector_; }

   private:
    Recipe& recipe_;
    std::unique_ptr<recipe::Inspector> inspector_;
  };

  std::unique_ptr<recipe::Inspector> Made() const {
    return std::make_unique<recipe::Inspector>(recipe_, sources_);
  }

  std::unique_ptr<recipe::Inspector> TakeFree() {
    const std::lock_guard lock(mutex_);
    if (free_.empty()) return nullptr;
    auto taken = std::move(free_.back());
    free_.pop_back();
    return taken;
  }

  Notes notes_;
  recipe::Recipe recipe_;
  kit::Sources sources_;
  std::mutex mutex_;
  Inspectors free_;
};

}  // namespace

void AddRecipes(py::module_& module) {
  py::class_<Recipe>(module, "Recipe")
      .def(py::init<const py::object&, const py::object&>())
      .def("run", &Recipe::Run)
      .def("record", &Recipe::Record)
      .def("name", &Recipe::Name);
}

}  // namespace quillon::python
