// Parameter files as the exports write them hold numbers and nothing else. So they are judged by
// size, kind and plausibility before they are used; and what a command makes has a JSON file beside
// it, NAME.json, that says what it was made for.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "quillon/image.h"

namespace quillon::kit {

using Json = nlohmann::ordered_json;
using Note = std::function<void(const std::string&)>;

// Little-endian numbers of a file whose size was tested.
class ParameterFile {
 public:
  // Throws Failure where the file has another size; `kind` is for messages: "lens".
  ParameterFile(std::string path, const char* kind, size_t size);

  int Word(size_t index) const;    // of 32 bits
  double Real(size_t byte) const;  // of 64 bits, from this byte on
  [[noreturn]] void Refuse(const std::string& why) const;

  // A word that can be a place in or around a picture.
  int Place(size_t index) const;

 private:
  std::string path_, bytes_;
  const char* kind_;
};

// The size of the pictures that parameters are for; 0 x 0 where nobody said.
struct PictureSize {
  int width = 0, height = 0;
};

// The size that `width` and `height` of an object say; 0 x 0 where they say none that can be.
PictureSize SizeIn(const Json& object);

// Writes NAME.json: kind, size where it is known, and `more`.
void WriteCompanion(const std::string& parameters, const char* kind, PictureSize size,
                    const Json& more);

// Reads it. Throws Failure where it is of another kind or does not hold the words of `own`, which
// the parameters themselves hold too: then it is another file's. Without the file, or without a
// size, the note is told.
PictureSize ReadCompanion(const std::string& parameters, const char* kind, const Json& own,
                          const Note& note);

// Throws Failure for a picture of another size than the known one.
void RequirePictureSize(const std::string& parameters, PictureSize size, const GreyImage& image);

// Where an image of the known size is corrected to: black, as large. Throws as above, and where
// there is no memory for it.
void CreateCorrected(const std::string& parameters, PictureSize size, const GreyImage& image,
                     GreyImage& corrected);

}  // namespace quillon::kit
