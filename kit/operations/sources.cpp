#include "kit/operations/sources.h"

#include <filesystem>

#include "kit/errors.h"
#include "kit/images/pixels.h"

namespace quillon::kit {

std::string Sources::File(const std::string& name) const {
  if (pictures.contains(name)) throw Failure("'" + name + "' is a picture; a file is needed");
  return Shown(name);
}

std::string Sources::Shown(const std::string& name) const {
  if (pictures.contains(name)) return name;
  return (std::filesystem::path(folder) / name).generic_string();
}

void Sources::Read(const std::string& name, GreyImage& image) const {
  const auto found = pictures.find(name);
  if (found == pictures.end()) {
    ReadImage(Shown(name), image, reading);
  } else if (found->second.grey) {
    image.CopyFrom(found->second.grey);
  } else {
    IxColorToGray(found->second.colour, &image);
  }
  RequirePixels(image);
}

void Sources::Read(const std::string& name, ColourImage& image) const {
  const auto found = pictures.find(name);
  if (found == pictures.end()) {
    ReadImage(Shown(name), image, reading);
  } else if (found->second.colour) {
    image.CopyFrom(found->second.colour);
  } else {
    throw Failure("'" + name + "' is a grey picture; one in colour is needed");
  }
  RequirePixels(image);
}

}  // namespace quillon::kit
