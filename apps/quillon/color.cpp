// quillon color: a picture in hue, saturation and intensity, or in CIE L*a*b*.
#include <map>
#include <memory>
#include <vector>

#include "commands.h"
#include "kit/images/image_files.h"
#include "kit/report/before_after.h"
#include "options.h"
#include "quillon/quillon.h"

namespace quillon::app {
namespace {

constexpr Operation kOperations[] = {
    {"IxCreateCToHSI", "color hsi IN OUT", "the tables of hue, saturation and intensity"},
    {"IxCreateCToLab", "color lab IN OUT", "the tables of CIE L*a*b*"},
    {"IxColorToHSI", "color hsi IN OUT", "a picture through the tables of a colour space"},
    {"IxColorToLab", "color lab IN OUT", "a second name of IxColorToHSI"},
    {"IxGetHSI", "color hsi IN OUT --channel hue", "one channel of a converted picture"},
    {"IxGetCIELab", "color lab IN OUT --channel L", "a second name of IxGetHSI"},
    {"IxGetHSIPoint", "", "the three channels of one pixel"},
    {"IxGetCIELabPoint", "", "a second name of IxGetHSIPoint"},
};

struct Space {
  const char* name;
  const char* summary;
  uint8_t(QUILLON_CALL* build)(uint8_t*, uint8_t*, uint8_t*);
  std::map<std::string, int> channels;
};

const Space kSpaces[] = {
    {"hsi",
     "Hue, saturation and intensity, a byte each",
     IxCreateCToHSI,
     {{"hue", 0}, {"saturation", 1}, {"intensity", 2}}},
    {"lab",
     "Lightness, green to red, blue to yellow (CIE L*a*b*), a byte each",
     IxCreateCToLab,
     {{"L", 0}, {"a", 1}, {"b", 2}}},
};

struct Options {
  std::string in, out, report;
  int channel = -1;
};

void Convert(const Space& space, const Options& options) {
  constexpr size_t kColours = 1u << 24;
  ColourImage image, converted;
  ReadImage(options.in, image);
  std::vector<uint8_t> tables(3 * kColours);
  uint8_t* const table = tables.data();
  space.build(table, table + kColours, table + 2 * kColours);
  IxColorToHSI(&image, &converted, table, table + kColours, table + 2 * kColours);
  const auto finish = [&](const auto& result) {
    WriteImage(options.out, result);
    if (options.report.empty()) return;
    WriteBeforeAfter(options.report, "Colours of " + options.in, image, result, {.key = "colours"});
  };
  if (options.channel < 0) {
    finish(converted);
    return;
  }
  GreyImage channel;
  IxGetHSI(&converted, &channel, options.channel);
  finish(channel);
}

void AddColor(Command app) {
  const Command color = app.Add("color", "A picture in another colour space");
  color.NeedsSubcommand();
  for (const Space& space : kSpaces) {
    auto options = std::make_shared<Options>();
    const Command command = color.Add(space.name, space.summary);
    AddPictureToRead(command, "IN", options->in);
    AddPictureToWrite(command, "OUT", options->out);
    command
        .AddOption("--channel", options->channel,
                   "write this channel alone, in grey; without it the first channel is written "
                   "as blue, the second as green, the third as red")
        .Named(space.channels);
    AddBeforeAfterOption(command, options->report);
    command.Runs([&space, options] { Convert(space, *options); });
  }
}

}  // namespace

const Family kColourSpaces = {"colour spaces", AddColor, kOperations};

}  // namespace quillon::app
