// A model as one file. It holds what was taught from, not what teaching made of it: that is made
// again on loading, the same on every platform, so no table of points in a file needs to be
// believed.
//
//   offset  bytes
//   0       8      "QLNFIND" and a zero
//   8       4      version, 1; all numbers have their low byte first
//   12      4      way to look: 0 edges, 1 grey
//   16      4      width
//   20      4      height
//   24      4      1 with a mask, else 0
//   28             pixels, row by row; then the mask's, 0 or 255
//   end - 8 8      checksum of everything before it
#include <algorithm>

#include "finder/finder.h"

namespace quillon::finder {
namespace {

constexpr uint8_t kMagic[8] = {'Q', 'L', 'N', 'F', 'I', 'N', 'D', 0};
constexpr uint32_t kVersion = 1;
constexpr size_t kHeader = 28, kChecksum = 8;

// FNV-1a (G. Fowler, L. C. Noll, K.-P. Vo).
uint64_t ChecksumOf(std::span<const uint8_t> bytes) {
  uint64_t sum = 0xCBF29CE484222325;
  for (const uint8_t byte : bytes) sum = (sum ^ byte) * 0x100000001B3;
  return sum;
}

uint64_t ReadNumber(const uint8_t* from, int bytes) {
  uint64_t number = 0;
  for (int i = bytes - 1; i >= 0; --i) number = number << 8 | from[i];
  return number;
}

uint8_t* WriteNumber(uint8_t* to, uint64_t number, int bytes) {
  for (int i = 0; i < bytes; ++i) *to++ = static_cast<uint8_t>(number >> (8 * i));
  return to;
}

}  // namespace

Status Save(const Model& model, Buffer<uint8_t>& bytes) {
  if (!model.IsTaught()) return Status::kNoPicture;
  bytes = Buffer<uint8_t>(kHeader + model.pixels.size() + model.mask.size() + kChecksum);
  if (!bytes) return Status::kNoMemory;
  uint8_t* to = std::copy(std::begin(kMagic), std::end(kMagic), bytes.data());
  to = WriteNumber(to, kVersion, 4);
  to = WriteNumber(to, model.way == Way::kGrey ? 1 : 0, 4);
  to = WriteNumber(to, model.width, 4);
  to = WriteNumber(to, model.height, 4);
  to = WriteNumber(to, model.mask ? 1 : 0, 4);
  to = std::copy(model.pixels.begin(), model.pixels.end(), to);
  to = std::copy(model.mask.begin(), model.mask.end(), to);
  WriteNumber(to, ChecksumOf({bytes.data(), bytes.size() - kChecksum}), kChecksum);
  return Status::kOk;
}

bool IsModelFile(std::span<const uint8_t> bytes) {
  return bytes.size() >= sizeof kMagic &&
         std::equal(std::begin(kMagic), std::end(kMagic), bytes.begin());
}

Status Load(const FinderKernels& kernels, std::span<const uint8_t> bytes, Model& model) {
  model = Model();
  if (bytes.size() < kHeader + kChecksum || !IsModelFile(bytes)) return Status::kDamaged;
  const std::span<const uint8_t> content = bytes.first(bytes.size() - kChecksum);
  if (ReadNumber(content.data() + content.size(), kChecksum) != ChecksumOf(content)) {
    return Status::kDamaged;
  }
  if (ReadNumber(&bytes[8], 4) > kVersion) return Status::kUnknownVersion;
  const uint64_t way = ReadNumber(&bytes[12], 4), hasMask = ReadNumber(&bytes[24], 4);
  const uint64_t width = ReadNumber(&bytes[16], 4), height = ReadNumber(&bytes[20], 4);
  if (ReadNumber(&bytes[8], 4) != kVersion || way > 1 || hasMask > 1 || width > kMaxSide ||
      height > kMaxSide || content.size() != kHeader + width * height * (1 + hasMask)) {
    return Status::kDamaged;
  }
  Picture picture = {&content[kHeader], static_cast<int>(width), static_cast<int>(height),
                     static_cast<ptrdiff_t>(width)};
  TeachOptions options;
  options.way = way == 1 ? Way::kGrey : Way::kEdges;
  if (hasMask == 1) {
    options.mask = picture;
    options.mask.pixels += width * height;
  }
  const Status status = Teach(kernels, picture, options, model);
  // What cannot be taught from was not saved by us.
  return status == Status::kOk || status == Status::kNoMemory ? status : Status::kDamaged;
}

}  // namespace quillon::finder
