#include "kit/operations/sources.h"

#include <filesystem>

#include "kit/errors.h"
#include "kit/images/pixels.h"

namespace quillon::kit {

std::string Sources::File(const std::string& name) const try {
  if (pictures.contains(name)) throw Failure("'" + name + "' is a picture; a file is needed");
  return Shown(name);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

std::string Sources::Shown(const std::string& name) const try {
  if (pictures.contains(name)) return name;
  return (std::filesystem::path(folder) / name).generic_string();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void Sources::Read(const std::string& name, GreyImage& image) const try {
  const auto found = pictures.find(name);
  if (found == pictures.end()) {
    ReadImage(Shown(name), image, reading);
  } else if (found->second.grey) {
    CopyPicture(*found->second.grey, image);
  } else {
    IxColorToGray(found->second.colour, &image);
  }
  RequirePixels(image);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a picture");
}

void Sources::Read(const std::string& name, ColourImage& image) const try {
  const auto found = pictures.find(name);
  if (found == pictures.end()) {
    ReadImage(Shown(name), image, reading);
  } else if (found->second.colour) {
    CopyPicture(*found->second.colour, image);
  } else {
    throw Failure("'" + name + "' is a grey picture; one in colour is needed");
  }
  RequirePixels(image);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a picture");
}

}  // namespace quillon::kit
