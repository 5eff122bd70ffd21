// Every export as data: its name, how to call it, what each parameter means, when it has to refuse
// and how large its result is. The tests of this folder are loops over this table.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quillon/quillon.h"

namespace quillon::test {

// What a parameter means to the function. It decides the values that are tried (values.h), and what
// may differ after a call.
enum class Role {
  kGrey,            // read
  kColour,          // read
  kGreyResult,      // re-created
  kColourResult,    // re-created
  kGreyInPlace,     // read and written
  kCalibrated,      // the same, with calibration state
  kInt,             //
  kBool,            //
  kDouble,          //
  kFloat,           //
  kWeights,         // a kernel of up to 49 ints, read
  kPolygon,         // points x, y, read
  kPolygonCount,    //
  kGrid,            // points x, y, read and written
  kGridCount,       //
  kOut,             // an array that the host reads back
  kBlobList,        // the same, with room for the selected blobs
  kTable,           // 16 MiB, written
  kTableRead,       // 16 MiB, read
  kFileRead,        //
  kFileWritten,     //
  kRegion,          // read and written
  kRegionRead,      // queries that leave it alone
  kRegionReleased,  // ends with the call
  kNcc,
  kNccRead,
  kNccReleased,
  kGeo,
  kGeoRead,
  kGeoReleased,
};

struct Parameter {
  Role role;
  double usual = 0;  // of a number: the value it has in everyday calls; of kOut: its bytes
};

// One argument: a pointer or a number.
struct Value {
  void* pointer = nullptr;
  double number = 0;
};

// What a call returned.
struct Outcome {
  double number = 0;
  void* pointer = nullptr;
};

struct Extent {
  int width, height;
};

class Arguments {
 public:
  explicit Arguments(const std::vector<Value>& values) : values_(values) {}
  double Number(size_t i) const { return values_[i].number; }
  bool IsNull(size_t i) const { return !values_[i].pointer; }
  bool Same(size_t i, size_t j) const { return values_[i].pointer == values_[j].pointer; }
  // Any image: grey and colour ones have the same fields.
  const GreyImage* Image(size_t i) const {
    return static_cast<const GreyImage*>(values_[i].pointer);
  }
  // Whether it can be read as rows of pixels of so many bytes.
  bool HasPixels(size_t i, int bytes = 1) const {
    const GreyImage* image = Image(i);
    return image && image->bits && image->stride >= int64_t{image->width} * bytes;
  }
  bool IsGrey(size_t i) const { return HasPixels(i) && Image(i)->bpp == 8; }
  bool Reports8(size_t i) const { return Image(i) && Image(i)->bpp == 8; }
  RLERegion* Region(size_t i) const { return static_cast<RLERegion*>(values_[i].pointer); }

 private:
  const std::vector<Value>& values_;
};

// The value that the call must return, having done nothing; nothing when the call is to work.
using Refusal = std::function<std::optional<double>(const Arguments&)>;
// What the results have then; no extent where it depends on more than the arguments.
using ResultExtent = std::function<std::optional<Extent>(const Arguments&)>;

struct Export {
  const char* name;
  std::function<Outcome(const Value*)> call;
  std::vector<Parameter> parameters;
  Refusal refusal;
  double lowest = 0, highest = 0;  // of what is returned when it works; not a number: anything
  ResultExtent extent = nullptr;   // where there are result images
  void (*release)(void*) = nullptr;
};

struct Family {
  const char* name;
  std::vector<Export> exports;
};

// All families, in the order of the public header.
const std::vector<Family>& Families();

Family ThresholdExports();
Family FilterExports();
Family ArithmeticExports();
Family TransformExports();
Family MorphologyExports();
Family RegionExports();
Family BlobExports();
Family ColourExports();
Family CalibrationExports();
Family EdgeMatchingExports();
Family TemplateMatchingExports();

// ---- building rows
// -------------------------------------------------------------------------------

template <class T>
T To(const Value& value) {
  if constexpr (std::is_pointer_v<T>) {
    return static_cast<T>(value.pointer);
  } else if constexpr (std::is_same_v<T, bool>) {
    return value.number != 0;
  } else {
    return static_cast<T>(value.number);
  }
}

template <class Result, class... Types, size_t... i>
Outcome CallWith(Result (*function)(Types...), const Value* values, std::index_sequence<i...>) {
  if constexpr (std::is_void_v<Result>) {
    function(To<Types>(values[i])...);
    return {};
  } else if constexpr (std::is_pointer_v<Result>) {
    return {0, function(To<Types>(values[i])...)};
  } else {
    return {static_cast<double>(function(To<Types>(values[i])...)), nullptr};
  }
}

template <class Result, class... Types>
std::function<Outcome(const Value*)> Bind(Result (*function)(Types...)) {
  return [function]([[maybe_unused]] const Value* values) {
    return CallWith(function, values, std::index_sequence_for<Types...>());
  };
}

// A refusal that returns `value` when the condition holds.
template <class Condition>
Refusal RefuseWhen(Condition condition, double value = 0) {
  return [=](const Arguments& a) -> std::optional<double> {
    if (condition(a)) return value;
    return std::nullopt;
  };
}

inline Refusal Never() {
  return [](const Arguments&) { return std::nullopt; };
}

inline ResultExtent SameAs(size_t source) {
  return [source](const Arguments& a) -> std::optional<Extent> {
    return Extent{a.Image(source)->width, a.Image(source)->height};
  };
}

constexpr Parameter kGreySource = {Role::kGrey};
constexpr Parameter kColourSource = {Role::kColour};
constexpr Parameter kGreyResult = {Role::kGreyResult};
constexpr Parameter kColourResult = {Role::kColourResult};
constexpr Parameter kInPlace = {Role::kGreyInPlace};
constexpr Parameter Int(int usual) { return {Role::kInt, double(usual)}; }
constexpr Parameter Double(double usual) { return {Role::kDouble, usual}; }
constexpr Parameter Float(double usual) { return {Role::kFloat, usual}; }
constexpr Parameter Out(size_t bytes) { return {Role::kOut, double(bytes)}; }

}  // namespace quillon::test

// The first two fields of a row.
#define QUILLON_EXPORT(function) #function, ::quillon::test::Bind(function)
