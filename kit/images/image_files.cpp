#include "kit/images/image_files.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/raster.h"
#include "kit/text/text.h"
#include "quillon/quillon.h"

namespace quillon::kit {
namespace {

// Holds what the encoder asks for. Where there is no more of it, std::bad_alloc leaves the encoder,
// and what it held is given back.
class EncoderMemory {
 public:
  EncoderMemory() { current = this; }
  ~EncoderMemory() {
    for (void* block : blocks_) std::free(block);
    current = nullptr;
  }
  EncoderMemory(const EncoderMemory&) = delete;
  EncoderMemory& operator=(const EncoderMemory&) = delete;

  static void* Change(void* block, size_t size) {
    std::vector<void*>& blocks = current->blocks_;
    blocks.reserve(blocks.size() + 1);
    void* const changed = std::realloc(block, size);
    if (!changed) throw std::bad_alloc();
    std::erase(blocks, block);
    blocks.push_back(changed);
    return changed;
  }

  static void Free(void* block) {
    std::erase(current->blocks_, block);
    std::free(block);
  }

 private:
  static inline thread_local EncoderMemory* current = nullptr;
  std::vector<void*> blocks_;
};

}  // namespace
}  // namespace quillon::kit

using quillon::kit::EncoderMemory;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
// The encoder does not ask whether it got memory.
#define STBIW_MALLOC(size) EncoderMemory::Change(nullptr, size)
#define STBIW_REALLOC(block, size) EncoderMemory::Change(block, size)
#define STBIW_FREE(block) EncoderMemory::Free(block)
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace quillon::kit {
namespace {

Bytes BytesOf(const std::string& file) {
  return {reinterpret_cast<const unsigned char*>(file.data()), file.size()};
}

bool BeginsWith(Bytes file, std::string_view start) {
  return file.size() >= start.size() && std::memcmp(file.data(), start.data(), start.size()) == 0;
}

// By what the file begins with, whatever its name says.
Raster DecodeAny(Bytes file, int64_t maxPixels) {
  using namespace std::string_view_literals;
  if (BeginsWith(file, "\x89PNG\r\n\x1A\n")) return DecodePng(file, maxPixels);
  if (BeginsWith(file, "\xFF\xD8")) return DecodeJpeg(file, maxPixels);
  if (BeginsWith(file, "BM")) return DecodeBmp(file, maxPixels);
  for (const char* start : {"P2", "P3", "P5", "P6"}) {
    if (BeginsWith(file, start)) return DecodePnm(file, maxPixels);
  }
  for (std::string_view start : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
    if (BeginsWith(file, start)) return DecodeTiff(file, maxPixels);
  }
  throw Unreadable(file.empty() ? "it is empty"
                                : "it begins like none of " + std::string(kReadFormats));
}

// Grey bytes or red, green and blue, the right way up.
Raster Decode(Bytes file, const std::string& name, const Reading& reading) {
  try {
    Raster raster = DecodeAny(file, reading.maxPixels);
    Finish(raster, reading.depth);
    if (reading.note) {
      for (const std::string& note : raster.notes) reading.note("image '" + name + "': " + note);
    }
    return raster;
  } catch (const Unreadable& unreadable) {
    throw Failure("cannot read image '" + name + "': " + unreadable.what());
  }
}

std::string Quoted(const std::string& name) { return "image '" + name + "'"; }

template <class Pixel>
void CreateOrFail(const Raster& raster, CImage<Pixel>& image) {
  image.Create(raster.width, raster.height);
  if (image.bits) return;
  throw OutOfMemory("a picture of " + SizeText(raster.width, raster.height));
}

void ToColour(const Raster& raster, ColourImage& image) {
  CreateOrFail(raster, image);
  const int samples = raster.Colours();
  const unsigned char* from = raster.samples.get();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x, from += samples) {
      unsigned char* pixel = image.rows[y] + 3 * x;
      pixel[0] = from[samples - 1];
      pixel[1] = from[samples / 2];
      pixel[2] = from[0];
    }
  }
}

// Packed rows, top first; colour as red, green, blue.
std::vector<unsigned char> Packed(const GreyImage& image) {
  std::vector<unsigned char> packed;
  for (int y = 0; y < image.height; ++y) {
    packed.insert(packed.end(), image.rows[y], image.rows[y] + image.width);
  }
  return packed;
}

std::vector<unsigned char> Packed(const ColourImage& image) {
  std::vector<unsigned char> packed;
  packed.reserve(static_cast<size_t>(image.width) * image.height * 3);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const unsigned char* pixel = image.rows[y] + 3 * x;
      packed.insert(packed.end(), {pixel[2], pixel[1], pixel[0]});
    }
  }
  return packed;
}

void Append(void* context, void* data, int size) {
  auto* bytes = static_cast<std::vector<unsigned char>*>(context);
  const auto* from = static_cast<const unsigned char*>(data);
  bytes->insert(bytes->end(), from, from + size);
}

// BMP with a byte a pixel and a table of greys, which is read as the same grey picture again. The
// encoder makes colours of it.
std::vector<unsigned char> GreyBmp(const GreyImage& image) {
  constexpr uint32_t kHeaders = 14 + 40, kGreys = 256, kPixels = kHeaders + 4 * kGreys;
  constexpr uint32_t kPlaneOf8Bits = 1 | 8 << 16;
  const auto width = static_cast<uint32_t>(image.width), height = uint32_t(image.height);
  const uint32_t stride = (width + 3) / 4 * 4, size = stride * height;
  std::vector<unsigned char> file = {'B', 'M'};
  file.reserve(kPixels + size_t{size});
  for (const uint32_t word : {kPixels + size, 0u, kPixels, 40u, width, height, kPlaneOf8Bits, 0u,
                              size, 0u, 0u, kGreys, 0u}) {
    for (int shift = 0; shift < 32; shift += 8) file.push_back(word >> shift & 255);
  }
  for (uint32_t grey = 0; grey < kGreys; ++grey) {
    for (const uint32_t byte : {grey, grey, grey, 0u}) file.push_back(byte & 255);
  }
  for (int y = image.height - 1; y >= 0; --y) {
    file.insert(file.end(), image.rows[y], image.rows[y] + width);
    file.insert(file.end(), stride - width, 0);
  }
  return file;
}

template <class Pixel>
std::vector<unsigned char> Encode(const CImage<Pixel>& image, bool png) {
  if constexpr (sizeof(Pixel) == 1) {
    if (!png) return GreyBmp(image);
  }
  constexpr int kChannels = static_cast<int>(sizeof(Pixel));
  const auto packed = Packed(image);
  std::vector<unsigned char> bytes;
  const EncoderMemory memory;
  if (png) {
    stbi_write_png_to_func(Append, &bytes, image.width, image.height, kChannels, packed.data(),
                           image.width * kChannels);
  } else {
    stbi_write_bmp_to_func(Append, &bytes, image.width, image.height, kChannels, packed.data());
  }
  return bytes;
}

template <class Pixel>
std::string FileOf(const CImage<Pixel>& image) {
  return "the file of a picture of " + SizeText(image.width, image.height);
}

template <class Pixel>
void Write(const std::string& path, const CImage<Pixel>& image) {
  CheckPictureName(path);
  if (!image.bits) throw Failure("cannot write '" + path + "': the image is empty");
  WithinMemory(Quoted(path), [&] {
    const auto bytes = Encode(image, path.ends_with(".png"));
    WriteFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  });
}

}  // namespace

void DecodeImage(Bytes file, const std::string& name, GreyImage& grey, ColourImage& colour,
                 const Reading& reading) try {
  WithinMemory(Quoted(name), [&] {
    const Raster raster = Decode(file, name, reading);
    colour.Destroy();
    if (raster.isColour) {
      ToColour(raster, colour);
      CreateOrFail(raster, grey);
      IxColorToGray(&colour, &grey);
      return;
    }
    CreateOrFail(raster, grey);
    const auto width = static_cast<size_t>(grey.width);
    for (int y = 0; y < grey.height; ++y) {
      std::memcpy(grey.rows[y], raster.samples.get() + static_cast<size_t>(y) * width, width);
    }
  });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an image");
}

void ReadImage(const std::string& path, GreyImage& grey, ColourImage& colour,
               const Reading& reading) try {
  const std::string file = WithinMemory(Quoted(path), [&] { return ReadFile(path); });
  DecodeImage(BytesOf(file), path, grey, colour, reading);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an image");
}

void ReadImage(const std::string& path, GreyImage& image, const Reading& reading) {
  ColourImage colour;
  ReadImage(path, image, colour, reading);
}

void ReadImage(const std::string& path, ColourImage& image, const Reading& reading) try {
  WithinMemory(Quoted(path),
               [&] { ToColour(Decode(BytesOf(ReadFile(path)), path, reading), image); });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an image");
}

void CheckPictureName(const std::string& path) try {
  if (path.ends_with(".png") || path.ends_with(".bmp")) return;
  throw Failure("cannot write '" + path + "': its name must end in .png or .bmp");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the name of a file");
}

void WriteImage(const std::string& path, const GreyImage& image) try {
  Write(path, image);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an image");
}
void WriteImage(const std::string& path, const ColourImage& image) try {
  Write(path, image);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an image");
}

std::vector<unsigned char> EncodePng(const GreyImage& image) try {
  return WithinMemory(FileOf(image), [&] { return Encode(image, true); });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an encoded picture");
}
std::vector<unsigned char> EncodePng(const ColourImage& image) try {
  return WithinMemory(FileOf(image), [&] { return Encode(image, true); });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an encoded picture");
}

std::vector<unsigned char> EncodeJpeg(const ColourImage& image, int quality) try {
  return WithinMemory(FileOf(image), [&] {
    const auto packed = Packed(image);
    const EncoderMemory memory;
    std::vector<unsigned char> bytes;
    stbi_write_jpg_to_func(Append, &bytes, image.width, image.height, 3, packed.data(), quality);
    return bytes;
  });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("an encoded picture");
}

}  // namespace quillon::kit
