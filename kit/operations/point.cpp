// Grey and colour channels, thresholds, arithmetic, geometric transforms.
#include <cstring>

#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

// An operation that works in place.
void Start(const Call& call) { call.result.picture.CopyFrom(&call.a.picture); }

// ---- colour -------------------------------------------------------------------------------------

using Build = uint8_t(QUILLON_CALL*)(uint8_t*, uint8_t*, uint8_t*);

// The tables of a colour space. All threads read the same ones.
template <Build build>
const uint8_t* Tables() {
  constexpr size_t kColours = 1u << 24;
  static const std::vector<uint8_t> tables = [] {
    std::vector<uint8_t> made(3 * kColours);
    build(made.data(), made.data() + kColours, made.data() + 2 * kColours);
    return made;
  }();
  return tables.data();
}

int ChannelNumber(const std::string& name, std::initializer_list<const char*> names) {
  int number = 0;
  for (const char* other : names) {
    if (name == other) break;
    ++number;
  }
  return number;
}

template <Build build>
void Convert(const Call& call, std::initializer_list<const char*> channels) {
  constexpr size_t kColours = 1u << 24;
  const uint8_t* const tables = Tables<build>();
  ColourImage converted;
  IxColorToHSI(&call.a.colour, &converted, tables, tables + kColours, tables + 2 * kColours);
  IxGetHSI(&converted, &call.result.picture, ChannelNumber(call.values.Text("channel"), channels));
}

// ---- arithmetic ---------------------------------------------------------------------------------

std::string Size(const GreyImage& image) {
  return std::to_string(image.width) + " x " + std::to_string(image.height);
}

template <auto function>
void Pair(const Call& call) {
  const GreyImage &a = call.a.picture, &b = call.b.picture;
  if (a.width != b.width || a.height != b.height) {
    throw Failure("the pictures have different sizes, " + Size(a) + " and " + Size(b));
  }
  function(&a, &b, &call.result.picture);
}

template <auto function>
RecipeOperation PairRow(const char* name, const char* summary) {
  return {name,           "arithmetic", summary,       {Kind::kPicture, Kind::kPicture},
          Kind::kPicture, {},           Pair<function>};
}

// ---- geometry -----------------------------------------------------------------------------------

void Crop(const Call& call) {
  const GreyImage& image = call.a.picture;
  const int left = call.values.Whole("left"), top = call.values.Whole("top");
  const int width = call.values.Whole("width"), height = call.values.Whole("height");
  if (left + width > image.width || top + height > image.height) {
    throw Failure("the part to crop ends at column " + std::to_string(left + width) + ", row " +
                  std::to_string(top + height) + ", the picture has " + Size(image));
  }
  call.result.picture.Create(width, height);
  for (int y = 0; y < call.result.picture.height; ++y) {
    std::memcpy(call.result.picture.rows[y], image.rows[top + y] + left,
                static_cast<size_t>(width));
  }
}

constexpr std::array<Kind, 2> kPicture = {Kind::kPicture, Kind::kNone};
constexpr std::array<Kind, 2> kColour = {Kind::kColour, Kind::kNone};

}  // namespace

std::vector<RecipeOperation> PointOperations() {
  std::vector<RecipeOperation> rows = {
      {"gray",
       "colour",
       "the grey value of a colour picture",
       kColour,
       Kind::kPicture,
       {},
       [](const Call& call) { IxColorToGray(&call.a.colour, &call.result.picture); }},
      {"rgb",
       "colour",
       "one channel of a colour picture",
       kColour,
       Kind::kPicture,
       {Choice("channel", {"red", "green", "blue"}, "which one")},
       [](const Call& call) {
         IxGetHSI(&call.a.colour, &call.result.picture,
                  ChannelNumber(call.values.Text("channel"), {"blue", "green", "red"}));
       }},
      {"hsi",
       "colour",
       "hue, saturation or intensity",
       kColour,
       Kind::kPicture,
       {Choice("channel", {"hue", "saturation", "intensity"}, "which one")},
       [](const Call& call) {
         Convert<IxCreateCToHSI>(call, {"hue", "saturation", "intensity"});
       }},
      {"lab",
       "colour",
       "lightness, green to red, or blue to yellow (CIE L*a*b*)",
       kColour,
       Kind::kPicture,
       {Choice("channel", {"L", "a", "b"}, "which one")},
       [](const Call& call) {
         Convert<IxCreateCToLab>(call, {"L", "a", "b"});
       }},

      {"threshold",
       "thresholds",
       "white above a level, black elsewhere",
       kPicture,
       Kind::kPicture,
       {Whole("above", 0, 255, "the level")},
       [](const Call& call) {
         Start(call);
         IxThreshold(&call.result.picture, call.values.Whole("above"));
       }},
      {"band",
       "thresholds",
       "white strictly between two levels, black elsewhere",
       kPicture,
       Kind::kPicture,
       {WholeRange("between", 0, 255, "the levels, which are black themselves")},
       [](const Call& call) {
         Start(call);
         const auto between = call.values.List<int>("between");
         IxDoubleThreshold(&call.result.picture, between[0], between[1]);
       }},
      {"otsu",
       "thresholds",
       "white above the level that separates dark from bright best",
       kPicture,
       Kind::kPicture,
       {},
       [](const Call& call) {
         Start(call);
         IxOtsuThreshold(&call.result.picture);
       }},

      PairRow<IxImageAdd>("add", "the sum, at most 255"),
      PairRow<IxImageSub>("sub", "the first less the second, at least 0"),
      PairRow<IxImageMul>("mul", "the product, at most 255"),
      PairRow<IxImageDiv>("div", "the first over the second, truncated"),
      PairRow<IxImageBirwiseAND>("and", "bits in both"),
      PairRow<IxImageBirwiseOR>("or", "bits in either"),
      PairRow<IxImageBirwiseXOR>("xor", "bits in one only"),
      PairRow<IxImageEqual>("equal", "white where both are the same"),
      PairRow<IxImageNOTEqual>("not-equal", "white where they differ"),
      {"shift-left",
       "arithmetic",
       "the grey value doubled, the low 8 bits of it",
       kPicture,
       Kind::kPicture,
       {Whole("bits", 0, 8, "how often")},
       [](const Call& call) {
         IxImageShiftLeft(&call.a.picture, &call.result.picture, call.values.Whole("bits"));
       }},
      {"shift-right",
       "arithmetic",
       "the grey value halved",
       kPicture,
       Kind::kPicture,
       {Whole("bits", 0, 8, "how often")},
       [](const Call& call) {
         IxImageShiftRight(&call.a.picture, &call.result.picture, call.values.Whole("bits"));
       }},
      {"invert",
       "arithmetic",
       "255 less the grey value",
       kPicture,
       Kind::kPicture,
       {},
       [](const Call& call) { IxImageInvert(&call.a.picture, &call.result.picture); }},
      {"gain-offset",
       "arithmetic",
       "the grey value times a gain, plus an offset",
       kPicture,
       Kind::kPicture,
       {Number("gain", -1000, 1000, "the factor").Or("1"),
        Number("offset", -255'000, 255'000, "added to the product").Or("0")},
       [](const Call& call) {
         IxImageGainOffset(&call.a.picture, &call.result.picture, call.values.Number("gain"),
                           call.values.Number("offset"));
       }},

      {.name = "scale",
       .family = "geometry",
       .summary = "another size, by the nearest pixel",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {Number("x", 0.01, 100, "factor of the width").Or("1"),
                     Number("y", 0.01, 100, "factor of the height").Or("1")},
       .run =
           [](const Call& call) {
             IxImageScaling(&call.a.picture, &call.result.picture, call.values.Number("x"),
                            call.values.Number("y"));
             if (!call.result.picture.bits) {
               throw Failure("a scaled side would not have 1 to 32767 pixels");
             }
           },
       .movesPixels = true},
      {.name = "translate",
       .family = "geometry",
       .summary = "moved by whole pixels; black comes after",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {Whole("dx", -32767, 32767, "pixels to the right").Or("0"),
                     Whole("dy", -32767, 32767, "pixels down").Or("0")},
       .run =
           [](const Call& call) {
             IxImageTranslation(&call.a.picture, &call.result.picture, call.values.Whole("dx"),
                                call.values.Whole("dy"));
           },
       .movesPixels = true},
      {.name = "rotate",
       .family = "geometry",
       .summary = "turned about the centre; black comes after",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {Number("angle", -360, 360, "degrees, clockwise"),
                     Flag("bilinear", "blend the four nearest pixels").Or("false")},
       .run =
           [](const Call& call) {
             const auto rotate =
                 call.values.Flag("bilinear") ? IxImageRotationBilinear : IxImageRotation;
             rotate(&call.a.picture, &call.result.picture, call.values.Number("angle"));
           },
       .movesPixels = true},
      {.name = "crop",
       .family = "geometry",
       .summary = "an upright part of the picture",
       .inputs = kPicture,
       .output = Kind::kPicture,
       .arguments = {Whole("left", 0, 32766, "its first column"),
                     Whole("top", 0, 32766, "its first row"),
                     Whole("width", 1, 32767, "its columns"),
                     Whole("height", 1, 32767, "its rows")},
       .run = Crop,
       .movesPixels = true},
  };
  return rows;
}

}  // namespace quillon::kit
