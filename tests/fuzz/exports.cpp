// All exports, in any order, over the same few objects: the input chooses the row of the contract
// table (reliability/exports.h) and the arguments, and what the row promises is looked at after
// each call. Tables of 16 MiB that an export fills, and files, are left to other tests.
#include <cmath>
#include <cstring>
#include <list>
#include <utility>

#include "fuzz/input.h"
#include "reliability/exports.h"

namespace quillon::fuzz {
namespace {

using test::Arguments;
using test::Export;
using test::Outcome;
using test::Parameter;
using test::Role;
using test::Value;

const std::vector<const Export*>& Rows() {
  static const std::vector<const Export*> rows = [] {
    std::vector<const Export*> all;
    for (const test::Family& family : test::Families()) {
      for (const Export& row : family.exports) {
        bool fillsTables = false;
        for (const Parameter& parameter : row.parameters) {
          fillsTables = fillsTables || parameter.role == Role::kTable;
        }
        if (!fillsTables) all.push_back(&row);
      }
    }
    return all;
  }();
  return rows;
}

// What the calls of one input have in common.
struct Objects {
  GreyImage greys[3];  // the last is empty at first
  ColourImage colours[3];
  RLERegion* region = CreateRLERegion();
  NccTool* ncc = IxCreateNCCTool();
  GeoMatchTool* geo = IxCreateGeoTool();

  explicit Objects(Input& input) {
    for (int i = 0; i < 2; ++i) {
      input.Image(greys[i], 64 >> i);
      input.Image(colours[i], 64 >> i);
    }
    // The second image is often a part of the first, or of its size: something to find, to combine.
    if (input.Choice(2)) {
      const int width = greys[0].width >> input.Choice(3),
                height = greys[0].height >> input.Choice(3);
      greys[1].Create(width, height);
      for (int y = 0; greys[1].bits && y < height; ++y) {
        std::memcpy(greys[1].rows[y], greys[0].rows[y], static_cast<size_t>(width));
      }
    }
  }
  ~Objects() {
    DestroyRLERegion(region);
    IxDestroyNCCModel(ncc);
    IxDestroyMatchModel(geo);
    for (GreyImage& image : greys) {
      if (image.bits) continue;
      // By contract an object without pixels releases nothing by itself.
      std::free(image.flatFieldTable);
      std::free(image.distortionCoefficients);
      std::free(image.distortionCoefficientRows);
      std::free(image.distortionMap);
      std::free(image.distortionMapRows);
    }
  }

  void RequireAllSound() {
    for (const GreyImage& image : greys) RequireSound(image);
    for (const ColourImage& image : colours) RequireSound(image);
    NccResult r = {};
    for (int i = 0; IxGetNCCMatchResults(ncc, i, &r); ++i) {
      for (double value : {r.x, r.y, r.angle, r.scale, r.score}) {
        Require(std::isfinite(value), "results are finite");
      }
    }
    const GeoModelLevel* level = geo ? geo->model : nullptr;
    for (int i = 0; level && i < level->count; ++i) {
      Require(std::abs(level->x[i]) <= level->width && std::abs(level->y[i]) <= level->height &&
                  std::isfinite(level->inverseMagnitude[i]),
              "points lie in the template");
    }
  }
};

// Mostly near the usual value, now and then anything.
double Number(const Parameter& parameter, Input& input) {
  const int kind = input.Choice(4);
  if (parameter.role == Role::kBool) return kind % 2;
  if (kind == 0) return parameter.usual;
  if (parameter.role == Role::kInt) return input.Int();
  const double number = kind == 3 ? input.Double() : parameter.usual * (input.Byte() / 128.0);
  return parameter.role == Role::kFloat ? static_cast<double>(static_cast<float>(number)) : number;
}

// The arguments of one call, and the memory behind those that are arrays.
class Call {
 public:
  Call(const Export& row, Objects& objects, Input& input) : row_(row) {
    for (const Parameter& parameter : row.parameters)
      values_.push_back(Make(parameter, objects, input));
  }

  // What would take too long, or leaves memory behind by contract.
  bool IsLeftOut() const {
    if (!std::strcmp(row_.name, "IxImageScaling")) {
      const GreyImage* source = static_cast<const GreyImage*>(values_[0].pointer);
      for (size_t i : {2, 3}) {
        if (source && !(values_[i].number * (source->width + source->height) < 3000)) return true;
      }
    }
    return !std::strncmp(row_.name, "IxMorph", 7) && values_[0].pointer == values_[1].pointer;
  }

  void Run() {
    std::vector<ReadOnly<unsigned char>> unchanged;
    const Arguments arguments(values_);
    const std::optional<double> refused = row_.refusal(arguments);
    for (size_t i = 0; i < values_.size(); ++i) {
      const bool isRead =
          row_.parameters[i].role == Role::kGrey || row_.parameters[i].role == Role::kColour;
      bool isWritten = false;
      for (size_t k = 0; k < values_.size(); ++k) {
        isWritten = isWritten || (values_[k].pointer == values_[i].pointer &&
                                  row_.parameters[k].role != row_.parameters[i].role);
      }
      if (isRead && !isWritten) unchanged.emplace_back(arguments.Image(i));
    }
    const Outcome outcome = row_.call(values_.data());
    if (refused) {
      Require(outcome.number == *refused && !outcome.pointer, "a refusal returns its value");
    } else {
      Require(std::isnan(row_.highest) ||
                  (outcome.number >= row_.lowest && outcome.number <= row_.highest),
              "what is returned is in its range");
    }
    if (outcome.pointer && row_.release) row_.release(outcome.pointer);
    for (const auto& image : unchanged) image.RequireUnchanged();
  }

 private:
  template <class Pixel>
  static void* Pick(CImage<Pixel> (&images)[3], void* wrong, Input& input) {
    void* const all[] = {&images[0], &images[1], &images[0], &images[1],
                         &images[2], nullptr,    wrong};
    return all[input.Choice(7)];
  }

  void* Numbers(size_t count, Input& input) {
    std::vector<int>& numbers = arrays_.emplace_back(count);
    for (int& number : numbers) number = input.Int();
    return input.Choice(32) ? numbers.data() : nullptr;
  }

  // The call ends this object's life: the others go on with a new one.
  template <class Object>
  static Value Released(Object*& object, Object* (*make)(), Input& input) {
    return {input.Choice(32) ? std::exchange(object, make()) : nullptr};
  }

  Value Make(const Parameter& parameter, Objects& o, Input& input) {
    static std::vector<uint8_t> table(1 << 24, 7);
    const auto orNull = [&](void* object) { return Value{input.Choice(32) ? object : nullptr}; };
    switch (parameter.role) {
      case Role::kGrey:
      case Role::kGreyInPlace:
        return {Pick(o.greys, &o.colours[0], input)};
      case Role::kColour:
        return {Pick(o.colours, &o.greys[0], input)};
      case Role::kGreyResult:
      case Role::kCalibrated:
        return {Pick(o.greys, nullptr, input)};
      case Role::kColourResult:
        return {Pick(o.colours, nullptr, input)};
      case Role::kWeights:
        return {Numbers(49, input)};
      case Role::kPolygon:
      case Role::kGrid:
        return {Numbers(2 * 25, input)};
      case Role::kPolygonCount:
      case Role::kGridCount:
        return {nullptr,
                static_cast<double>(input.Choice(8) ? input.Choice(26) : input.Int() % 26)};
      case Role::kOut:
        return {Numbers((static_cast<size_t>(parameter.usual) + 3) / 4, input)};
      case Role::kBlobList:
        return {Numbers(
            static_cast<size_t>(IxGetSelectBlobCount(o.region)) * sizeof(BlobFeature) / 4, input)};
      case Role::kTable:
      case Role::kTableRead:
        return orNull(table.data());
      case Role::kFileRead:
      case Role::kFileWritten:
        return {};
      case Role::kRegion:
      case Role::kRegionRead:
        return orNull(o.region);
      case Role::kRegionReleased:
        return Released(o.region, CreateRLERegion, input);
      case Role::kNcc:
      case Role::kNccRead:
        return orNull(o.ncc);
      case Role::kNccReleased:
        return Released(o.ncc, IxCreateNCCTool, input);
      case Role::kGeo:
      case Role::kGeoRead:
        return orNull(o.geo);
      case Role::kGeoReleased:
        return Released(o.geo, IxCreateGeoTool, input);
      default:
        return {nullptr, Number(parameter, input)};
    }
  }

  const Export& row_;
  std::vector<Value> values_;
  std::list<std::vector<int>> arrays_;
};

}  // namespace

void Run(Input& input) {
  Objects objects(input);
  for (int i = 0; i < 12 && !input.Ended(); ++i) {
    const Export& row = *Rows()[static_cast<size_t>(input.Choice(static_cast<int>(Rows().size())))];
    Call call(row, objects, input);
    if (call.IsLeftOut()) continue;
    call.Run();
    objects.RequireAllSound();
  }
}

}  // namespace quillon::fuzz
