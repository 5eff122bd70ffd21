// JPEG files: the segments are walked to the end of the picture, and what the header promises is
// weighed against the coded data; then the small decoder reads them.
#include <algorithm>
#include <cstring>
#include <vector>

#include "kit/images/fields.h"
#include "kit/images/stb_decoder.h"
#include "kit/images/tiff_directory.h"

namespace quillon::kit {
namespace {

// A progressive picture takes some ten scans; each one costs a pass over all of it.
constexpr int kMaxScans = 100;

enum Marker : unsigned {
  kRestart0 = 0xD0,
  kRestart7 = 0xD7,
  kEnd = 0xD9,
  kScan = 0xDA,
  kRestartInterval = 0xDD,
  kExif = 0xE1,
};

struct Component {
  unsigned id;
  int across,
      down;  // its blocks in a unit, the smallest part of the picture that has all components
  bool isCoded = false;
};

class Walk {
 public:
  explicit Walk(Bytes file) : file_(file, Fields::Order::kGreatestFirst), bytes_(file) {}

  int width = 0, height = 0, orientation = 1;

  // Throws Unreadable where a part of the picture is missing.
  void Run(int64_t maxPixels) {
    for (size_t at = 2;;) {
      if (file_.At8(at) != 0xFF) throw Unreadable("no marker at byte " + std::to_string(at));
      const unsigned marker = file_.At8(at + 1);
      if (marker == 0xFF) {  // any number of these may stand before a marker
        ++at;
        continue;
      }
      at += 2;
      if (marker == kEnd) break;
      const Bytes segment = file_.Part(at, file_.At16(at));
      if (segment.size() < 2) throw Unreadable("a segment has no size");
      const size_t next = at + segment.size();
      if (IsFrame(marker)) ReadFrame(marker, at, maxPixels);
      if (marker == kRestartInterval) interval_ = static_cast<int>(file_.At16(at + 2));
      if (marker == kExif && segment.size() > 8 && std::memcmp(&segment[2], "Exif\0\0", 6) == 0) {
        orientation = OrientationOf(segment.subspan(8));
      }
      at = marker == kScan ? ReadScan(at, next) : next;
    }
    const auto isMissing = [](const Component& component) { return !component.isCoded; };
    if (components_.empty() || std::any_of(components_.begin(), components_.end(), isMissing)) {
      throw Unreadable("it ends before all of its colours are coded");
    }
  }

 private:
  static bool IsFrame(unsigned marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
  }

  void ReadFrame(unsigned marker, size_t at, int64_t maxPixels) {
    if (marker > 0xC2) throw Unreadable("its kind of coding is not read (baseline, progressive)");
    if (!components_.empty()) throw Unreadable("it holds two pictures");
    if (file_.At8(at + 2) != 8) {
      throw Unreadable("its " + std::to_string(file_.At8(at + 2)) + " bits a sample are not read");
    }
    height = static_cast<int>(file_.At16(at + 3));
    width = static_cast<int>(file_.At16(at + 5));
    RequireSize(width, height, maxPixels);
    int64_t blocks = 0;
    for (unsigned i = 0; i < file_.At8(at + 7); ++i) {
      const size_t entry = at + 8 + 3 * size_t{i};
      const unsigned factors = file_.At8(entry + 1);
      const Component component = {file_.At8(entry), static_cast<int>(factors >> 4),
                                   static_cast<int>(factors & 15)};
      if (std::min(component.across, component.down) < 1 ||
          std::max(component.across, component.down) > 4) {
        throw Unreadable("a colour has no size");
      }
      components_.push_back(component);
      mostAcross_ = std::max(mostAcross_, component.across);
      mostDown_ = std::max(mostDown_, component.down);
    }
    for (const Component& component : components_) {
      blocks += int64_t{BlocksAcross(component)} * BlocksDown(component);
    }
    // A block takes one bit at the least.
    RequireRoom(width, height, blocks, 8 * static_cast<int64_t>(bytes_.size()), bytes_);
  }

  static int Quotient(int value, int divisor) { return (value + divisor - 1) / divisor; }
  int BlocksAcross(const Component& component) const {
    return Quotient(Quotient(width * component.across, mostAcross_), 8);
  }
  int BlocksDown(const Component& component) const {
    return Quotient(Quotient(height * component.down, mostDown_), 8);
  }

  // From the header of a scan; returns where its coded data end.
  size_t ReadScan(size_t at, size_t data) {
    if (++scans_ > kMaxScans) {
      throw Unreadable("it has more than " + std::to_string(kMaxScans) + " scans");
    }
    const unsigned count = file_.At8(at + 2);
    const bool beginsBlocks = file_.At8(at + 3 + 2 * size_t{count}) == 0;
    int64_t units = int64_t{Quotient(width, 8 * mostAcross_)} * Quotient(height, 8 * mostDown_);
    for (unsigned i = 0; i < count; ++i) {
      const unsigned id = file_.At8(at + 3 + 2 * size_t{i});
      for (Component& component : components_) {
        if (component.id != id) continue;
        component.isCoded = component.isCoded || beginsBlocks;
        if (count == 1) units = int64_t{BlocksAcross(component)} * BlocksDown(component);
      }
    }
    int64_t restarts = 0;
    for (;; ++data) {
      const auto* rest = bytes_.data() + std::min(data, bytes_.size());
      const void* found = std::memchr(rest, 0xFF, bytes_.size() - std::min(data, bytes_.size()));
      if (!found) throw Unreadable("it ends too early: within its coded data");
      data = static_cast<size_t>(static_cast<const unsigned char*>(found) - bytes_.data());
      const unsigned marker = file_.At8(data + 1);
      if (marker >= kRestart0 && marker <= kRestart7) {
        if (marker - kRestart0 != restarts % 8) throw Unreadable("a piece of its data is missing");
        ++restarts;
      } else if (marker != 0 && marker != 0xFF) {
        break;
      }
    }
    const int64_t expected = interval_ > 0 ? (units - 1) / interval_ : 0;
    if (restarts != expected) {
      throw Unreadable("its coded data have " + std::to_string(restarts + 1) + " of " +
                       std::to_string(expected + 1) + " pieces");
    }
    return data;
  }

  Fields file_;
  Bytes bytes_;
  std::vector<Component> components_;
  int mostAcross_ = 1, mostDown_ = 1, interval_ = 0, scans_ = 0;
};

}  // namespace

Raster DecodeJpeg(Bytes file, int64_t maxPixels) {
  Walk walk(file);
  walk.Run(maxPixels);
  Raster raster = DecodeByStb(file, walk.width, walk.height, false);
  raster.orientation = walk.orientation;
  return raster;
}

}  // namespace quillon::kit
