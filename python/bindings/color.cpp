// Colour spaces.
#include <array>
#include <string>

#include "families.h"
#include "image_functions.h"
#include "results.h"

namespace quillon::python {
namespace {

constexpr py::ssize_t kEntries = 1 << 24;

using CreateExport = uint8_t (*)(uint8_t*, uint8_t*, uint8_t*);
using ConvertExport = uint8_t (*)(const ColourImage*, ColourImage*, const uint8_t*, const uint8_t*,
                                  const uint8_t*);
using ChannelExport = uint8_t (*)(const ColourImage*, GreyImage*, int);
using PointExport = uint8_t (*)(const ColourImage*, int, int, uint8_t*);

void DefineTables(py::module_& module, const char* name, CreateExport export_, const char* text) {
  module.def(
      name,
      [export_] {
        py::array_t<uint8_t> tables[3];
        for (auto& table : tables) table = py::array_t<uint8_t>(kEntries);
        uint8_t* const data[] = {tables[0].mutable_data(), tables[1].mutable_data(),
                                 tables[2].mutable_data()};
        Unlocked([&] { export_(data[0], data[1], data[2]); });
        return Named("ColorTables", tables[0], tables[1], tables[2]);
      },
      text);
}

// The three tables, checked; `keepAlive` holds them.
std::array<const uint8_t*, 3> ReadTables(const py::object& tables, py::list& keepAlive) {
  if (!py::isinstance<py::sequence>(tables) || py::len(tables) != 3) {
    throw py::type_error("tables: three arrays are wanted, as hsi_tables() or lab_tables() makes");
  }
  std::array<const uint8_t*, 3> data{};
  for (size_t i = 0; i < 3; ++i) {
    const py::object table = tables[py::int_(i)];
    keepAlive.append(table);
    const bool fits = py::isinstance<py::array_t<uint8_t, py::array::c_style>>(table) &&
                      py::array(table).size() == kEntries;
    if (!fits) {
      Refuse(("tables[" + std::to_string(i) + "]").c_str(), "a contiguous array of 16777216 uint8",
             "another object");
    }
    data[i] = static_cast<const uint8_t*>(py::array(table).data());
  }
  return data;
}

void DefineConversion(py::module_& module, const char* name, ConvertExport export_,
                      const char* text) {
  module.def(
      name,
      [export_](const Array& image, const py::object& tables, const Array& out) {
        py::list keepAlive;
        const auto data = ReadTables(tables, keepAlive);
        const Source<RGB_24> source(image, "image");
        auto result = NewResult<RGB_24>(source.width(), source.height());
        Unlocked([&] { export_(source.get(), result.get(), data[0], data[1], data[2]); });
        NeedPixels(*result);
        return Deliver(std::move(result), out);
      },
      py::arg("image"), py::arg("tables"), py::kw_only(), py::arg("out") = py::none(), text);
}

void DefineChannel(py::module_& module, const char* name, ChannelExport export_, const char* text) {
  module.def(
      name,
      [export_](const Array& image, int channel, const Array& out) {
        if (channel < 0 || channel > 2) Refuse("channel", "0, 1 or 2", std::to_string(channel));
        const Source<RGB_24> source(image, "image");
        auto result = NewResult<unsigned char>(source.width(), source.height());
        Unlocked([&] { export_(source.get(), result.get(), channel); });
        NeedPixels(*result);
        return Deliver(std::move(result), out);
      },
      py::arg("image"), py::arg("channel"), py::kw_only(), py::arg("out") = py::none(), text);
}

void DefinePoint(py::module_& module, const char* name, PointExport export_, const char* record,
                 const char* text) {
  module.def(
      name,
      [export_, record](const Array& image, int x, int y) {
        // A view of one pixel: no image is copied for it.
        const PixelView view = ViewOf(image, "image", Layout::kColour);
        if (x < 0 || x >= view.width || y < 0 || y >= view.height) {
          throw py::index_error("(x, y): a pixel of the image is wanted, this is (" +
                                std::to_string(x) + ", " + std::to_string(y) + ")");
        }
        PixelView pixel = view;
        pixel.data += y * view.rowStep + x * view.columnStep;
        pixel.width = pixel.height = 1;
        const auto point = CopyPixels<RGB_24>(pixel);
        uint8_t channels[3] = {};
        export_(point.get(), 0, 0, channels);
        return Named(record, channels[0], channels[1], channels[2]);
      },
      py::arg("image"), py::arg("x"), py::arg("y"), text);
}

}  // namespace

void AddColor(py::module_& module) {
  DefineTables(module, "hsi_tables", IxCreateCToHSI,
               "The tables of hue, saturation and intensity for color_to_hsi(); 48 MB.");
  DefineTables(module, "lab_tables", IxCreateCToLab,
               "The tables of CIE L*a*b*, scaled to bytes, for color_to_lab(); 48 MB.");
  constexpr const char* kConvert =
      "A color image through `tables`: byte k of a pixel is the entry of table k.";
  DefineConversion(module, "color_to_hsi", IxColorToHSI, kConvert);
  DefineConversion(module, "color_to_lab", IxColorToLab, kConvert);
  constexpr const char* kChannel = "One channel (0, 1, 2) of a converted image as a gray image.";
  DefineChannel(module, "get_hsi", IxGetHSI, kChannel);
  DefineChannel(module, "get_lab", IxGetCIELab, kChannel);
  DefinePoint(module, "get_hsi_point", IxGetHSIPoint, "Hsi",
              "Hue, saturation and intensity of one pixel of a converted image.");
  DefinePoint(module, "get_lab_point", IxGetCIELabPoint, "Lab",
              "Lightness, a and b of one pixel of a converted image.");
}

}  // namespace quillon::python
