// Image files: PNG, JPEG, BMP and PGM in, PNG and BMP out.
#pragma once

#include <string>
#include <vector>

#include "quillon/image.h"

namespace quillon::kit {

// Reads a file as grey (colour files through IxColorToGray) or as colour (grey files tripled).
// Throws Failure naming the file.
void ReadImage(const std::string& path, GreyImage& image);
void ReadImage(const std::string& path, ColourImage& image);

// Reads a file as grey, and a colour file as colour too; `colour` is empty after a grey one.
void ReadImage(const std::string& path, GreyImage& grey, ColourImage& colour);

// Throws Failure unless the name is one that WriteImage writes by.
void CheckPictureName(const std::string& path);

// Writes by the name's ending, .png or .bmp; throws Failure naming the file.
void WriteImage(const std::string& path, const GreyImage& image);
void WriteImage(const std::string& path, const ColourImage& image);

// The image as the bytes of a PNG file, for reports.
std::vector<unsigned char> EncodePng(const GreyImage& image);
std::vector<unsigned char> EncodePng(const ColourImage& image);

// The image as the bytes of a JPEG file, for thumbnails.
std::vector<unsigned char> EncodeJpeg(const ColourImage& image);

}  // namespace quillon::kit
