// Where the files and pictures are that values name.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "kit/images/image_files.h"
#include "quillon/quillon.h"

namespace quillon::kit {

// A picture to work on, in grey, in colour or both. It is neither copied nor changed.
struct PictureView {
  const GreyImage* grey = nullptr;
  const ColourImage* colour = nullptr;

  bool HasGrey() const { return grey && grey->bits; }
  bool HasColour() const { return colour && colour->bits; }
};

// Files in a folder, and how the pictures among them are read; and pictures in memory, each with
// the name by which values mean it.
struct Sources {
  Sources(std::string folder_ = {}, Reading reading_ = {})
      : folder(std::move(folder_)), reading(std::move(reading_)) {}

  std::string folder;  // names of files are relative to it
  Reading reading;
  std::map<std::string, PictureView> pictures = {};

  // A file name with the folder. Throws Failure where the name means a picture in memory.
  std::string File(const std::string& name) const;
  // What messages call it: the file name with the folder, or the name of the picture.
  std::string Shown(const std::string& name) const;
  // Copies the picture, or reads it from the file. Throws Failure naming it.
  void Read(const std::string& name, GreyImage& image) const;
  void Read(const std::string& name, ColourImage& image) const;
};

}  // namespace quillon::kit
