// Image files: PNG, JPEG, TIFF, BMP, PGM and PPM in, PNG and BMP out.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "quillon/image.h"

namespace quillon::kit {

constexpr const char* kReadFormats = "PNG, JPEG, TIFF, BMP, PGM, PPM";
constexpr int kMaxPixels = 16384 * 16384;

// How files become images of bytes.
struct Reading {
  int depth = 0;               // bits that samples of 16 bits use; 0: as the file says
  int maxPixels = kMaxPixels;  // a larger picture is refused before memory is taken
  // Receives a sentence for each decision that the file left open; none: they are not wanted.
  std::function<void(const std::string&)> note = {};
};

// Reads a file as grey (colour files through IxColorToGray) or as colour (grey files tripled).
// Throws Failure naming the file: also for one that is cut short or damaged, or no regular file.
// docs/command-line.md says what becomes of 16 bits, transparency and orientation.
void ReadImage(const std::string& path, GreyImage& image, const Reading& reading = {});
void ReadImage(const std::string& path, ColourImage& image, const Reading& reading = {});

// Reads a file as grey, and a colour file as colour too; `colour` is empty after a grey one.
void ReadImage(const std::string& path, GreyImage& grey, ColourImage& colour,
               const Reading& reading = {});

// The same for a file's bytes in memory; `name` is for the message.
void DecodeImage(std::span<const unsigned char> file, const std::string& name, GreyImage& grey,
                 ColourImage& colour, const Reading& reading = {});

// Throws Failure unless the name is one that WriteImage writes by.
void CheckPictureName(const std::string& path);

// Writes by the name's ending, .png or .bmp; throws Failure naming the file.
void WriteImage(const std::string& path, const GreyImage& image);
void WriteImage(const std::string& path, const ColourImage& image);

// The image as the bytes of a PNG file, for reports. As all of this header, it throws OutOfMemory.
std::vector<unsigned char> EncodePng(const GreyImage& image);
std::vector<unsigned char> EncodePng(const ColourImage& image);

// The image as the bytes of a JPEG file, for pages and thumbnails; quality is 1 to 100.
std::vector<unsigned char> EncodeJpeg(const ColourImage& image, int quality = 85);

}  // namespace quillon::kit
