// The tables of colour spaces, and single pixels.
#include <string>

#include "arrays.h"
#include "families.h"
#include "results.h"

namespace quillon::python {
namespace {

constexpr py::ssize_t kEntries = 1 << 24;

using CreateExport = uint8_t (*)(uint8_t*, uint8_t*, uint8_t*);
using PointExport = uint8_t (*)(const ColourImage*, int, int, uint8_t*);

void DefineTables(py::module_& module, const char* name, CreateExport export_) {
  module.def(name, [export_] {
    py::array_t<uint8_t> tables[3];
    for (auto& table : tables) table = py::array_t<uint8_t>(kEntries);
    uint8_t* const data[] = {tables[0].mutable_data(), tables[1].mutable_data(),
                             tables[2].mutable_data()};
    Unlocked([&] { export_(data[0], data[1], data[2]); });
    return Named("ColorTables", tables[0], tables[1], tables[2]);
  });
}

void DefinePoint(py::module_& module, const char* name, PointExport export_, const char* record) {
  module.def(name, [export_, record](const Array& image, int x, int y) {
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
  });
}

}  // namespace

void AddColor(py::module_& module) {
  DefineTables(module, "hsi_tables", IxCreateCToHSI);
  DefineTables(module, "lab_tables", IxCreateCToLab);
  DefinePoint(module, "get_hsi_point", IxGetHSIPoint, "Hsi");
  DefinePoint(module, "get_lab_point", IxGetCIELabPoint, "Lab");
}

}  // namespace quillon::python
