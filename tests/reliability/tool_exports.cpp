// The rows of regions, blobs, colour spaces, calibration and both matchers.
#include <cmath>
#include <limits>

#include "reliability/exports.h"

namespace quillon::test {
namespace {

constexpr double kAny = std::numeric_limits<double>::max();
constexpr double kByte = 255;

constexpr Parameter kRegion = {Role::kRegion};
constexpr Parameter kRegionRead = {Role::kRegionRead};
constexpr Parameter kCalibrated = {Role::kCalibrated};
constexpr Parameter kTable = {Role::kTable};
constexpr Parameter kTableRead = {Role::kTableRead};
constexpr Parameter kFileRead = {Role::kFileRead};
constexpr Parameter kFileWritten = {Role::kFileWritten};
constexpr Parameter kNcc = {Role::kNcc};
constexpr Parameter kNccRead = {Role::kNccRead};
constexpr Parameter kGeo = {Role::kGeo};
constexpr Parameter kGeoRead = {Role::kGeoRead};

constexpr int kColourBytes = 3;

template <size_t i>
bool IsNull(const Arguments& a) {
  return a.IsNull(i);
}

// Refused while the argument of this number is null, whatever the others are.
template <size_t i>
Refusal Needs() {
  return RefuseWhen(IsNull<i>);
}

bool CannotConvert(const Arguments& a) {
  return a.IsNull(1) || a.IsNull(2) || a.IsNull(3) || a.IsNull(4);
}

// A grey source is refused with another value than a missing one.
std::optional<double> RefusesColours(const Arguments& a) {
  if (CannotConvert(a)) return 0;
  if (a.Image(0) && a.Image(0)->bits && a.Image(0)->bpp <= 8) return 1;
  if (!a.HasPixels(0, kColourBytes)) return 0;
  return std::nullopt;
}

bool CannotCopyChannel(const Arguments& a) { return !a.HasPixels(0, kColourBytes) || a.IsNull(1); }

bool CannotCopyPoint(const Arguments& a) {
  return !a.HasPixels(0, kColourBytes) || a.IsNull(3) || a.Number(1) < 0 || a.Number(2) < 0 ||
         a.Number(1) >= a.Image(0)->width || a.Number(2) >= a.Image(0)->height;
}

bool CannotTeachColours(const Arguments& a) {
  return !a.HasPixels(0, kColourBytes) || a.Image(0)->bpp == 8 || a.IsNull(1);
}

std::vector<Parameter> SearchParameters(Parameter image) {
  return {image,     kNcc,        Double(0.5),      Double(20), Double(-20),
          Double(1), Double(0.9), {Role::kBool, 1}, Int(5)};
}

}  // namespace

Family RegionExports() {
  return {"regions",
          {
              {.name = "CreateRLERegion",
               .call = Bind(CreateRLERegion),
               .parameters = {},
               .refusal = Never(),
               .release = [](void* made) { DestroyRLERegion(static_cast<RLERegion*>(made)); }},
              {QUILLON_EXPORT(DestroyRLERegion), {{Role::kRegionReleased}}, Never()},
              {QUILLON_EXPORT(IxPointToRegion),
               {kRegion, {Role::kPolygon}, {Role::kPolygonCount}},
               RefuseWhen([](const Arguments& a) {
                 return a.IsNull(0) || a.IsNull(1) || a.Number(2) < 1;
               })},
              {QUILLON_EXPORT(IxImgAssignToRegion),
               {kRegion, kGreySource},
               RefuseWhen([](const Arguments& a) { return a.IsNull(0) || a.IsNull(1); }),
               1,
               1},
              {QUILLON_EXPORT(IxGetRegDisplay), {kRegion}, Needs<0>()},
          }};
}

Family BlobExports() {
  const Refusal needsBoth =
      RefuseWhen([](const Arguments& a) { return !a.HasPixels(0) || a.IsNull(1); });
  const Refusal needsRegion = Needs<0>();
  const std::vector<Parameter> limits = {kRegion, Int(1000), Int(3)};
  return {
      "blobs",
      {
          {QUILLON_EXPORT(IxGrayBlobLabel), {kGreySource, kRegion, Int(100), Int(255)}, needsBoth},
          {QUILLON_EXPORT(IxBinaryFillUp), {kInPlace, kRegion, Int(255)}, needsBoth, 1, 1},
          {QUILLON_EXPORT(IxGetBlobCount), {kRegionRead}, needsRegion, 0, 50000},
          {QUILLON_EXPORT(IxGetnBlobArea), {kRegionRead, Int(1)}, needsRegion, 0, kAny},
          {QUILLON_EXPORT(IxGetnBlobCenter), {kRegionRead, Int(1), Out(8)}, Needs<2>()},
          {QUILLON_EXPORT(IxGetnBlobBound), {kRegionRead, Int(1), Out(16)}, Needs<2>()},
          {QUILLON_EXPORT(IxGetBlobMinRect),
           {kRegionRead, Int(1), Out(52)},
           RefuseWhen([](const Arguments& a) {
             return a.IsNull(0) || a.IsNull(2) || a.Number(1) < 0 ||
                    a.Number(1) >= IxGetBlobCount(a.Region(0));
           }),
           1,
           1},
          {QUILLON_EXPORT(IxGetnBlobGrayMean),
           {kGreySource, kRegion, Int(1)},
           Needs<1>(),
           0,
           kAny},  // after hole filling the areas are not the blobs' any more
          {QUILLON_EXPORT(IxGetnBlobColorMean),
           {kColourSource, kRegion, Int(1), Out(24)},
           Needs<3>()},
          {QUILLON_EXPORT(IxGetnRegionGrayMean), {kGreySource, kRegionRead}, Needs<1>(), 0, kByte},
          {QUILLON_EXPORT(IxGetnRegionColorMean),
           {kColourSource, kRegionRead, Out(24)},
           Needs<2>()},
          {QUILLON_EXPORT(IxComputeAllBlobFeature), {kRegion}, needsRegion, 0, 1},
          {QUILLON_EXPORT(IxSelectBlobArea), limits, needsRegion, 0, 1},
          {QUILLON_EXPORT(IxSelectBlobWidth), limits, needsRegion, 0, 1},
          {QUILLON_EXPORT(IxSelectBlobHeight), limits, needsRegion, 0, 1},
          {QUILLON_EXPORT(IxLocateBlobCenter),
           {kRegion, Int(10), Int(80), Int(10), Int(70)},
           needsRegion,
           0,
           1},
          {QUILLON_EXPORT(IxReSelectBlob), {kRegion}, needsRegion, 0, 1},
          {QUILLON_EXPORT(IxGetSelectBlobCount), {kRegionRead}, needsRegion, 0, 20000},
          {QUILLON_EXPORT(IxGetBlobList),
           {kRegionRead, {Role::kBlobList}},
           RefuseWhen([](const Arguments& a) { return a.IsNull(0) || a.IsNull(1); }),
           0,
           1},
      }};
}

Family ColourExports() {
  const Refusal needsTables =
      RefuseWhen([](const Arguments& a) { return a.IsNull(0) || a.IsNull(1) || a.IsNull(2); });
  const std::vector<Parameter> converted = {kColourSource, kColourResult, kTableRead, kTableRead,
                                            kTableRead};
  const std::vector<Parameter> channel = {kColourSource, kGreyResult, Int(1)};
  const std::vector<Parameter> point = {kColourSource, Int(3), Int(2), Out(3)};
  return {
      "colours",
      {
          {QUILLON_EXPORT(IxColorToGray),
           {kColourSource, kGreyResult},
           RefuseWhen([](const Arguments& a) {
             return !a.HasPixels(0, kColourBytes) || a.Image(0)->bpp <= 8 || !a.Reports8(1);
           }),
           0,
           0,
           SameAs(0)},
          {QUILLON_EXPORT(IxCreateCToHSI), {kTable, kTable, kTable}, needsTables, 1, 1},
          {QUILLON_EXPORT(IxCreateCToLab), {kTable, kTable, kTable}, needsTables, 1, 1},
          {QUILLON_EXPORT(IxColorToHSI), converted, RefusesColours, 1, 1, SameAs(0)},
          {QUILLON_EXPORT(IxColorToLab), converted, RefusesColours, 1, 1, SameAs(0)},
          {QUILLON_EXPORT(IxGetHSI), channel, RefuseWhen(CannotCopyChannel), 1, 1, SameAs(0)},
          {QUILLON_EXPORT(IxGetCIELab), channel, RefuseWhen(CannotCopyChannel), 1, 1, SameAs(0)},
          {QUILLON_EXPORT(IxGetHSIPoint), point, RefuseWhen(CannotCopyPoint), 1, 1},
          {QUILLON_EXPORT(IxGetCIELabPoint), point, RefuseWhen(CannotCopyPoint), 1, 1},
      }};
}

Family CalibrationExports() {
  const auto cannotFit = [](const Arguments& a) {
    return a.IsNull(0) || a.IsNull(1) || a.Number(2) < 1 || std::fmod(a.Number(2), 2) == 0;
  };
  const auto hasNoPixels = [](const Arguments& a) { return !a.HasPixels(0); };
  return {"calibration",
          {
              {QUILLON_EXPORT(IxFFCParaBuild),
               {kCalibrated, Int(128), Int(2), Int(30), Int(1), Int(20), kFileWritten},
               Needs<0>(),
               0,
               1},
              {QUILLON_EXPORT(IxFFCParaLoad), {kCalibrated, Out(16), kFileRead}, Needs<0>(), 0, 1},
              {QUILLON_EXPORT(IxFFCCalibrate),
               {kCalibrated, Int(2), Int(30), Int(1), Int(20)},
               RefuseWhen(hasNoPixels)},
              {QUILLON_EXPORT(IxDistortionParaBuild),
               {kCalibrated,
                {Role::kGrid},
                {Role::kGridCount},
                Float(0.1),
                Float(0.1),
                Float(100),
                Float(100),
                kFileWritten},
               RefuseWhen(cannotFit),
               1,
               1},
              {QUILLON_EXPORT(IxDistortionParaLoad), {kCalibrated, kFileRead}, Needs<0>(), 0, 1},
              {QUILLON_EXPORT(IxDistortionPreCalculate), {kCalibrated}, Needs<0>()},
              {QUILLON_EXPORT(IxDistortionCalibrate), {kCalibrated}, RefuseWhen(hasNoPixels), 0, 1},
          }};
}

Family EdgeMatchingExports() {
  return {
      "edge matching",
      {
          {.name = "IxCreateGeoTool",
           .call = Bind(IxCreateGeoTool),
           .parameters = {},
           .refusal = Never(),
           .release = [](void* made) { IxDestroyMatchModel(static_cast<GeoMatchTool*>(made)); }},
          {QUILLON_EXPORT(IxCreateGeoMatchModel),
           {kGreySource, kGeo, Double(60), Double(30)},
           RefuseWhen([](const Arguments& a) { return !a.HasPixels(0) || a.IsNull(1); }),
           1,
           1},
          {QUILLON_EXPORT(IxFindGeoMatchModel),
           {kGreySource, kGeoRead, Double(0.5), Double(0.5), Out(8), Double(10), Double(-10),
            Int(1)},
           RefuseWhen(
               [](const Arguments& a) { return !a.HasPixels(0) || a.IsNull(1) || a.IsNull(4); }),
           -HUGE_VAL,  // an infinite limit comes back
           HUGE_VAL},
          {QUILLON_EXPORT(IxDestroyMatchModel), {{Role::kGeoReleased}}, Never()},
      }};
}

Family TemplateMatchingExports() {
  const auto cannotTeach = [](const Arguments& a) { return !a.IsGrey(0) || a.IsNull(1); };
  const auto cannotScore = [](const Arguments& a) {
    return !a.HasPixels(0, kColourBytes) || a.IsNull(1);
  };
  // Which level a tool has, and of which kind, only the tool knows.
  const Refusal copies = RefuseWhen([](const Arguments& a) {
    return a.IsNull(0) || a.IsNull(1) || a.Number(2) < 0 || a.Number(2) > 6;
  });
  return {
      "template matching",
      {
          {.name = "IxCreateNCCTool",
           .call = Bind(IxCreateNCCTool),
           .parameters = {},
           .refusal = Never(),
           .release = [](void* made) { IxDestroyNCCModel(static_cast<NccTool*>(made)); }},
          {QUILLON_EXPORT(IxDestroyNCCModel), {{Role::kNccReleased}}, Never()},
          {QUILLON_EXPORT(IxCreateNCCMatchModel),
           {kGreySource, kNcc, {Role::kBool, 0}},
           RefuseWhen(cannotTeach),
           1,
           1},
          {QUILLON_EXPORT(IxCreateNCCMatchColorModel),
           {kColourSource, kNcc, {Role::kBool, 1}},
           RefuseWhen(CannotTeachColours),
           1,
           1},
          {QUILLON_EXPORT(IxGet_DefaultPyramidLevel), {kNccRead}, Needs<0>(), 0, 6},
          {QUILLON_EXPORT(IxGet_CurrentPyramidLevel), {kNccRead}, Needs<0>(), 0, 6},
          {QUILLON_EXPORT(IxSetPyramidLevel),
           {kNcc, Int(0)},
           RefuseWhen([](const Arguments& a) {
             return a.IsNull(0) || a.Number(1) < 0 || a.Number(1) > 6;
           }),
           0,
           1},
          {QUILLON_EXPORT(IxGet_Pyramid_GrayImage), {kNccRead, kGreyResult, Int(0)}, copies, 0, 1},
          {QUILLON_EXPORT(IxGet_Pyramid_ColorImage),
           {kNccRead, kColourResult, Int(0)},
           copies,
           0,
           1},
          {QUILLON_EXPORT(IxFindNCCMatchModel), SearchParameters(kGreySource),
           RefuseWhen(cannotTeach), 0, 500},
          {QUILLON_EXPORT(IxFindNCCMatchColorModel), SearchParameters(kColourSource),
           RefuseWhen(CannotTeachColours), 0, 500},
          {QUILLON_EXPORT(IxGetNCCMatchResults),
           {kNccRead, Int(0), Out(sizeof(NccResult))},
           RefuseWhen([](const Arguments& a) {
             return a.IsNull(0) || a.IsNull(2) || a.Number(1) < 0 || a.Number(1) >= 500;
           }),
           0,
           1},
          {QUILLON_EXPORT(IxCreateNCCMatchColorModel_ROI),
           {kColourSource, kNcc},
           RefuseWhen(cannotScore),
           1,
           1},
          // The one result that may be infinite or not a number: a flat template's.
          {QUILLON_EXPORT(IxFindNCCMatchColorModel_ROI),
           {kColourSource, kNccRead},
           RefuseWhen(cannotScore),
           std::nan(""),
           std::nan("")},
      }};
}

}  // namespace quillon::test
