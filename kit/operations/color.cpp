// Grey, and the channels of colour spaces.
#include <cstring>

#include "kit/images/pixels.h"
#include "kit/operations/operation.h"

namespace quillon::kit {
namespace {

constexpr size_t kColours = 1u << 24;

using Build = uint8_t(QUILLON_CALL*)(uint8_t*, uint8_t*, uint8_t*);

// The tables of a colour space. All threads read the same ones.
template <Build build>
const uint8_t* Tables() {
  static const std::vector<uint8_t> tables = [] {
    std::vector<uint8_t> made(3 * kColours);
    build(made.data(), made.data() + kColours, made.data() + 2 * kColours);
    return made;
  }();
  return tables.data();
}

template <Build build>
void Convert(const Call& call) {
  const uint8_t* const tables = Tables<build>();
  IxColorToHSI(call.a.colour, &call.result.colour, tables, tables + kColours,
               tables + 2 * kColours);
}

// The choices of the argument `channel` stand in the order of the channels.
int Channel(const Call& call, const std::vector<const char*>& names) {
  const std::string name = call.values.Text("channel");
  int number = 0;
  while (name != names[static_cast<size_t>(number)]) ++number;
  return number;
}

const std::vector<const char*> kRgb = {"blue", "green", "red"};  // as pixels hold them
const std::vector<const char*> kHsi = {"hue", "saturation", "intensity"};
const std::vector<const char*> kLab = {"L", "a", "b"};

template <Build build>
void ConvertChannel(const Call& call, const std::vector<const char*>& names) {
  Convert<build>(call);
  IxGetHSI(&call.result.colour, &call.result.picture, Channel(call, names));
  call.result.colour.Destroy();
}

}  // namespace

std::vector<Operation> ColorOperations() {
  constexpr std::array<Kind, 2> kColour = {Kind::kColour, Kind::kNone};
  constexpr const char* kFamily = "colour";
  return {
      {.name = "gray",
       .family = kFamily,
       .summary = "the grey value of a colour picture; a grey one stays as it is",
       .inputs = kColour,
       .exports = {{"IxColorToGray"}},
       .run =
           [](const Call& call) {
             // The weights of the colours add up to less than 1: a grey picture would darken.
             if (call.a.HasGrey()) {
               CopyPicture(*call.a.grey, call.result.picture);
             } else {
               IxColorToGray(call.a.colour, &call.result.picture);
             }
           },
       .takesGrey = true},
      {.name = "rgb",
       .family = kFamily,
       .summary = "one channel of a colour picture",
       .inputs = kColour,
       .arguments = {Choice("channel", {kRgb.rbegin(), kRgb.rend()}, "which one")},
       .run =
           [](const Call& call) {
             IxGetHSI(call.a.colour, &call.result.picture, Channel(call, kRgb));
           }},
      {.name = "hsi",
       .family = kFamily,
       .summary = "hue, saturation or intensity",
       .inputs = kColour,
       .arguments = {Choice("channel", kHsi, "which one")},
       .exports = {{"IxGetHSI", "one channel of a converted picture"}},
       .run = [](const Call& call) { ConvertChannel<IxCreateCToHSI>(call, kHsi); }},
      {.name = "lab",
       .family = kFamily,
       .summary = "lightness, green to red, or blue to yellow (CIE L*a*b*)",
       .inputs = kColour,
       .arguments = {Choice("channel", kLab, "which one")},
       .exports = {{"IxGetCIELab", "a second name of IxGetHSI"}},
       .run = [](const Call& call) { ConvertChannel<IxCreateCToLab>(call, kLab); }},
      {.name = "color-to-hsi",
       .family = kFamily,
       .summary = "hue, saturation and intensity in place of blue, green and red",
       .inputs = kColour,
       .output = Kind::kColour,
       .exports = {{"IxCreateCToHSI", "the tables of hue, saturation and intensity"},
                   {"IxColorToHSI", "a picture through the tables of a colour space"}},
       .run = Convert<IxCreateCToHSI>},
      {.name = "color-to-lab",
       .family = kFamily,
       .summary = "CIE L*, a* and b* in place of blue, green and red",
       .inputs = kColour,
       .output = Kind::kColour,
       .exports = {{"IxCreateCToLab", "the tables of CIE L*a*b*"},
                   {"IxColorToLab", "a second name of IxColorToHSI"}},
       .run = Convert<IxCreateCToLab>},
  };
}

}  // namespace quillon::kit
