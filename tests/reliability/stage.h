// The values that exports are called with. A stage belongs to one thread: it holds the images,
// files and tables that are only read, and makes those that a call may change.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "quillon/quillon.h"
#include "reliability/exports.h"

namespace quillon::test {

// What a region went through, in the order of the choices; the first is everyday use.
enum class RegionState {
  kMeasured,
  kNull,
  kNew,
  kOutlined,
  kLabelled,
  kNothingSelected,
  kLabelledAgain,  // features of the labelling before
  kDisplayed,
  kFilledUp,  // tables used up by hole filling
  kCount
};

enum class NccState {
  kGrey,
  kNull,
  kNew,
  kMasked,
  kColour,
  kSearched,
  kSinglePosition,
  kFlat,
  kRefused,  // taught, then given what cannot be taught
  kTaughtAgain,
  kCount
};

enum class GeoState { kTaught, kNull, kNew, kFlat, kRefused, kTaughtAgain, kCount };

enum class CalibrationState {
  kBoth,
  kNull,
  kEmpty,
  kNone,
  kGains,
  kCoefficients,  // without the map
  kResized,       // the map belongs to another size
  kDeep,          // 24 bits
  kFailed,        // loading from a file that is not there
  kOnePixel,
  kLong,
  kCount
};

class Stage {
 public:
  Stage();
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // How many values a parameter is tried with; 0 is the usual one.
  int Choices(const Parameter& parameter) const;
  // Rows of choices: all of them where they are at most `most`, else every pair of values of any
  // two parameters, and each value beside usual ones.
  std::vector<std::vector<int>> Combinations(const Export& row, size_t most) const;

  // Images that are only read.
  GreyImage* Grey(int shape) { return grey_[static_cast<size_t>(shape)].get(); }
  ColourImage* Colour(int shape) { return colour_[static_cast<size_t>(shape)].get(); }
  uint8_t* Table(size_t k);
  // Null for the choice that stands for a null pointer.
  const char* FileToRead(int choice) const { return Name(filesToRead_, choice); }
  const char* FileToWrite(int choice) const { return Name(filesToWrite_, choice); }

  static double Number(const Parameter& parameter, int choice);
  static const std::vector<int>* Weights(int choice);
  static const std::vector<int>* Polygon(int choice);
  static const std::vector<int>* Grid(int choice);

  // Objects that a call may change: new ones, the caller's.
  RLERegion* MakeRegion(RegionState state);
  NccTool* MakeNccTool(NccState state);
  GeoMatchTool* MakeGeoTool(GeoState state);
  std::shared_ptr<GreyImage> MakeCalibrated(CalibrationState state);

  // The same, kept, for calls that only read them.
  RLERegion* Region(RegionState state);
  NccTool* Ncc(NccState state);
  GeoMatchTool* Geo(GeoState state);
  // An object that a call may change and that lives as long as the stage, where the role has one.
  bool FindLongLived(Role role, int choice, Value& value);
  // Makes those that this export reads.
  void KeepFor(const Export& row);
  // What can be seen of all kept objects and tables.
  uint64_t Digest();

 private:
  using Names = std::vector<std::unique_ptr<std::string>>;
  static const char* Name(const Names& names, int choice) {
    const auto& name = names[static_cast<size_t>(choice)];
    return name ? name->c_str() : nullptr;
  }
  void MakeImages();
  void MakeFiles();

  std::filesystem::path folder_;
  std::vector<std::unique_ptr<GreyImage>> grey_;
  std::vector<std::unique_ptr<ColourImage>> colour_;
  std::vector<uint8_t> tables_[3];
  Names filesToRead_, filesToWrite_;
  std::string gainsFile_, coefficientsFile_;
  std::vector<RLERegion*> regions_;
  std::vector<NccTool*> nccTools_;
  std::vector<GeoMatchTool*> geoTools_;
  std::vector<std::shared_ptr<void>> longLived_;
};

// Shapes of images that are only read, by choice.
constexpr int kScene = 0, kPattern = 3;

// A running hash of whatever can be seen of objects.
class Hash {
 public:
  void Add(const void* data, size_t size);
  void AddNumber(double number) { Add(&number, sizeof number); }
  template <class Pixel>
  void AddImage(const CImage<Pixel>* image);
  void AddRegion(RLERegion* region);
  void AddNcc(NccTool* tool);
  void AddGeo(const GeoMatchTool* tool);
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xcbf29ce484222325;
};

}  // namespace quillon::test
