// Pictures from files and into them.
#include "families.h"
#include "kit/images/image_files.h"

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "arrays.h"

namespace quillon::python {
namespace {

// From the file, or from its bytes where they are given; in colour only where the file is, and
// that is wanted.
py::array ReadPicture(const py::object& name, const py::object& data, bool alsoColour, int depth) {
  const std::string path = FileNameOf(name);
  std::string_view bytes;
  if (!data.is_none()) bytes = py::reinterpret_borrow<py::bytes>(data);
  Notes notes;
  kit::Reading reading = notes.Reading();
  reading.depth = depth;
  GreyImage grey;
  ColourImage colour;
  Unlocked([&] {
    if (data.is_none()) {
      kit::ReadImage(path, grey, colour, reading);
    } else {
      const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
      kit::DecodeImage(std::span(first, bytes.size()), path, grey, colour, reading);
    }
  });
  notes.Tell();
  return colour.bits && alsoColour ? ToArray(Take(colour)) : ToArray(Take(grey));
}

template <class Pixel>
void Write(const std::string& path, const Array& image) {
  const Source<Pixel> source(image, "image");
  Unlocked([&] { kit::WriteImage(path, *source.get()); });
}

void WritePicture(const py::object& name, const Array& image) {
  const std::string path = FileNameOf(name);
  IsColour(image) ? Write<RGB_24>(path, image) : Write<unsigned char>(path, image);
}

}  // namespace

void AddFiles(py::module_& module) {
  module.def("read_picture", ReadPicture);
  module.def("write_picture", WritePicture);
}

}  // namespace quillon::python
