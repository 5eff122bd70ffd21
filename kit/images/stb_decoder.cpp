#include "kit/images/stb_decoder.h"

#include <climits>
#include <new>
#include <string>

#include "kit/images/fields.h"

namespace {

// What the decoder may still take while it reads one file: a file of few bytes that unpacks to
// gigabytes ends as one for which memory ran out.
thread_local int64_t budget = 0;
// Whether bits were used that lie behind the end of a JPEG's coded data.
thread_local bool isCodedDataShort = false;

bool Spend(size_t size) {
  if (size > static_cast<size_t>(INT_MAX) || static_cast<int64_t>(size) > budget) return false;
  budget -= static_cast<int64_t>(size);
  return true;
}

// A JPEG file may leave out tables that it uses: they are empty then, not what memory held.
void* TakeMemory(size_t size) { return Spend(size) ? std::calloc(1, size) : nullptr; }
void* TakeMore(void* block, size_t size) {
  return Spend(size) ? std::realloc(block, size) : nullptr;
}

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_NO_STDIO
#define STBI_MAX_DIMENSIONS 32767
#define STBI_MALLOC(size) TakeMemory(size)
#define STBI_REALLOC(block, size) TakeMore(block, size)
#define STBI_FREE(block) std::free(block)
#define STBI_CODED_DATA_END_EARLY (isCodedDataShort = true)  // cmake/stb.cmake puts it in
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace quillon::kit {

Raster DecodeByStb(Bytes file, int width, int height, bool isWide) {
  if (file.size() > INT_MAX) throw Unreadable("it is larger than 2 GiB");
  // Far above what planes, coefficients, rows and result of this size take together.
  budget = int64_t{32} * (width + 64) * (height + 64) + 8 * static_cast<int64_t>(file.size()) +
           (1 << 20);
  isCodedDataShort = false;
  stbi__g_failure_reason = nullptr;
  const auto size = static_cast<int>(file.size());
  Raster raster;
  int count = 0;
  if (isWide) {
    raster.samples.reset(reinterpret_cast<unsigned char*>(
        stbi_load_16_from_memory(file.data(), size, &raster.width, &raster.height, &count, 0)));
  } else {
    raster.samples.reset(
        stbi_load_from_memory(file.data(), size, &raster.width, &raster.height, &count, 0));
  }
  if (!raster.samples) {
    // What fails for want of memory does not always give a reason.
    if (!stbi_failure_reason()) throw std::bad_alloc();
    const std::string reason = stbi_failure_reason();
    throw Unreadable(reason == "outofmem"
                         ? "its data unpack to more than its header promises, or memory is short"
                         : reason);
  }
  if (isCodedDataShort) throw Unreadable("its coded data end too early");
  if (raster.width != width || raster.height != height) throw Unreadable("it holds two sizes");
  raster.isColour = count >= 3;
  raster.isWide = isWide;
  if (count % 2 == 0) raster.transparency = Transparency::kStraight;
  return raster;
}

namespace {

// The sum at the end of a zlib stream, which the decoder passes over.
uint32_t Adler32(Bytes bytes) {
  constexpr uint32_t kModulus = 65521;
  uint32_t first = 1, second = 0;
  for (unsigned char byte : bytes) {
    first = (first + byte) % kModulus;
    second = (second + first) % kModulus;
  }
  return second << 16 | first;
}

}  // namespace

size_t Inflate(Bytes stream, std::span<unsigned char> unpacked) {
  if (stream.size() > INT_MAX || unpacked.size() > INT_MAX) throw Unreadable("it is too large");
  budget = 1 << 20;
  const int size = stbi_zlib_decode_buffer(
      reinterpret_cast<char*>(unpacked.data()), static_cast<int>(unpacked.size()),
      reinterpret_cast<const char*>(stream.data()), static_cast<int>(stream.size()));
  if (size < 0) throw Unreadable(std::string("its data do not unpack: ") + stbi_failure_reason());
  const auto written = static_cast<size_t>(size);
  const Fields file(stream, Fields::Order::kGreatestFirst);
  if (file.At32(stream.size() - 4) != Adler32(unpacked.first(written))) {
    throw Unreadable("its data do not unpack: a checksum is wrong");
  }
  return written;
}

}  // namespace quillon::kit
