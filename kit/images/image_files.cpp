#include "kit/images/image_files.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "quillon/quillon.h"

namespace quillon::kit {
namespace {

// Holds what the encoder asks for. Where there is no more of it, std::bad_alloc ends the encoder,
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
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_ONLY_BMP
#define STBI_ONLY_PNM
#define STBI_NO_STDIO
#define STBI_MAX_DIMENSIONS 32767
// A JPEG file may leave out tables that it uses: they are empty then, not what memory held.
#define STBI_MALLOC(size) std::calloc(1, size)
#define STBI_REALLOC(block, size) std::realloc(block, size)
#define STBI_FREE(block) std::free(block)
#include <stb/stb_image.h>
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

struct Decoded {
  std::unique_ptr<stbi_uc, decltype(&stbi_image_free)> pixels{nullptr, stbi_image_free};
  int width = 0, height = 0;
  bool grey = false;
};

// Packed grey bytes for grey files, packed red-green-blue otherwise.
Decoded Decode(const std::string& path) {
  const std::string bytes = ReadFile(path);
  if (bytes.size() > INT32_MAX) throw Failure("image '" + path + "' is larger than 2 GiB");
  const auto* data = reinterpret_cast<const stbi_uc*>(bytes.data());
  const int size = static_cast<int>(bytes.size());

  Decoded image;
  int channels = 0;
  if (!stbi_info_from_memory(data, size, &image.width, &image.height, &channels)) {
    throw Failure("cannot read image '" + path + "': " + stbi_failure_reason() +
                  " (PNG, JPEG, BMP and PGM are read)");
  }
  if (std::min(image.width, image.height) < 1 ||
      std::max(image.width, image.height) > STBI_MAX_DIMENSIONS) {
    throw Failure("cannot read image '" + path + "': its size of " + std::to_string(image.width) +
                  " x " + std::to_string(image.height) + " is not within 1 x 1 to " +
                  std::to_string(STBI_MAX_DIMENSIONS) + " x " +
                  std::to_string(STBI_MAX_DIMENSIONS));
  }
  image.grey = channels <= 2;
  image.pixels.reset(stbi_load_from_memory(data, size, &image.width, &image.height, &channels,
                                           image.grey ? 1 : 3));
  if (!image.pixels) throw Failure("cannot read image '" + path + "': " + stbi_failure_reason());
  return image;
}

template <class Pixel>
void CreateOrFail(const std::string& path, int width, int height, CImage<Pixel>& image) {
  image.Create(width, height);
  if (image.bits) return;
  throw Failure("no memory for image '" + path + "' of " + std::to_string(width) + " x " +
                std::to_string(height));
}

void ToColour(const std::string& path, const Decoded& decoded, ColourImage& image) {
  CreateOrFail(path, decoded.width, decoded.height, image);
  const int channels = decoded.grey ? 1 : 3;
  const stbi_uc* from = decoded.pixels.get();
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x, from += channels) {
      unsigned char* pixel = image.rows[y] + 3 * x;
      pixel[0] = from[channels - 1];
      pixel[1] = from[channels / 2];
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

template <class Pixel>
std::vector<unsigned char> Encode(const CImage<Pixel>& image, bool png) {
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
void Write(const std::string& path, const CImage<Pixel>& image) {
  CheckPictureName(path);
  if (!image.bits) throw Failure("cannot write '" + path + "': the image is empty");
  const auto bytes = Encode(image, path.ends_with(".png"));
  WriteFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace

void ReadImage(const std::string& path, GreyImage& grey, ColourImage& colour) {
  const Decoded decoded = Decode(path);
  colour.Destroy();
  if (!decoded.grey) {
    ToColour(path, decoded, colour);
    IxColorToGray(&colour, &grey);
    return;
  }
  CreateOrFail(path, decoded.width, decoded.height, grey);
  for (int y = 0; y < grey.height; ++y) {
    std::memcpy(grey.rows[y], decoded.pixels.get() + static_cast<size_t>(y) * grey.width,
                static_cast<size_t>(grey.width));
  }
}

void ReadImage(const std::string& path, GreyImage& image) {
  ColourImage colour;
  ReadImage(path, image, colour);
}

void ReadImage(const std::string& path, ColourImage& image) { ToColour(path, Decode(path), image); }

void CheckPictureName(const std::string& path) {
  if (path.ends_with(".png") || path.ends_with(".bmp")) return;
  throw Failure("cannot write '" + path + "': its name must end in .png or .bmp");
}

void WriteImage(const std::string& path, const GreyImage& image) { Write(path, image); }
void WriteImage(const std::string& path, const ColourImage& image) { Write(path, image); }

std::vector<unsigned char> EncodePng(const GreyImage& image) { return Encode(image, true); }
std::vector<unsigned char> EncodePng(const ColourImage& image) { return Encode(image, true); }

std::vector<unsigned char> EncodeJpeg(const ColourImage& image) {
  constexpr int kQuality = 85;
  const auto packed = Packed(image);
  const EncoderMemory memory;
  std::vector<unsigned char> bytes;
  stbi_write_jpg_to_func(Append, &bytes, image.width, image.height, 3, packed.data(), kQuality);
  return bytes;
}

}  // namespace quillon::kit
