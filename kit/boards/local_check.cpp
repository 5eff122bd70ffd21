#include "kit/boards/local_check.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace quillon::kit {
namespace {

constexpr int kSide = 64;  // of a window: the bits of a word are its columns
constexpr int kCell = 32;  // its middle part, which is judged
constexpr int kAround = (kSide - kCell) / 2;

constexpr uint64_t kLowBits = 0x0101010101010101;  // of eight bytes

struct Window {
  std::array<uint64_t, kSide> rows = {};

  uint64_t& operator[](int y) { return rows[static_cast<size_t>(y)]; }
  uint64_t operator[](int y) const { return rows[static_cast<size_t>(y)]; }
  // Row y of the window moved by (-dx, -dy); nothing where it is not known.
  uint64_t Moved(int y, int dx, int dy) const {
    if (y + dy < 0 || y + dy >= kSide) return 0;
    const uint64_t row = (*this)[y + dy];
    return dx >= 0 ? row >> dx : row << -dx;
  }
};

uint64_t EightBytes(const unsigned char* bytes) {
  uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// The lowest bit of each of 64 bytes, as one word whose lowest bit is the first byte's. The
// multiplication gathers the bits of eight bytes in its highest byte.
uint64_t PackRow(const unsigned char* bytes) {
  uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) {
    const uint64_t low = EightBytes(bytes + 8 * i) & kLowBits;
    bits |= (low * 0x0102040810204080 >> 56) << (8 * i);
  }
  return bits;
}

// What lies outside the plane is no material.
Window Pack(const GreyImage& plane, int left, int top) {
  Window window;
  const int width = std::min(kSide, plane.width - left),
            height = std::min(kSide, plane.height - top);
  for (int y = 0; y < height; ++y) {
    const unsigned char* from = plane.rows[top + y] + left;
    unsigned char row[kSide] = {};
    if (width < kSide)
      from = static_cast<unsigned char*>(std::memcpy(row, from, static_cast<size_t>(width)));
    window[y] = PackRow(from);
  }
  return window;
}

void Unpack(const Window& window, int x, int y, int width, int height, GreyImage& plane) {
  for (int row = 0; row < height; ++row) {
    const uint64_t bits = window[kAround + row] >> kAround;
    unsigned char* to = plane.rows[y + row] + x;
    for (int i = 0; i < width; ++i) to[i] = bits >> i & 1 ? 255 : 0;
  }
}

// The opening by squares of this side: what is left is covered by squares of set pixels that lie
// in the window.
Window Opened(const Window& window, int side) {
  Window across, corners, result;
  for (int y = 0; y < kSide; ++y) {
    across[y] = window[y];
    for (int i = 1; i < side; ++i) across[y] &= window[y] >> i;
  }
  for (int y = 0; y + side <= kSide; ++y) {
    corners[y] = across[y];
    for (int i = 1; i < side; ++i) corners[y] &= across[y + i];
  }
  for (int y = 0; y < kSide; ++y) {
    uint64_t above = 0;
    for (int i = 0; i < std::min(side, y + 1); ++i) above |= corners[y - i];
    for (int i = 0; i < side; ++i) result[y] |= above << i;
  }
  return result;
}

// What has `radius` set pixels on every side.
Window Deep(const Window& window, int radius) {
  Window across, result;
  for (int y = 0; y < kSide; ++y) {
    across[y] = window[y];
    for (int i = 1; i <= radius; ++i) across[y] &= window[y] >> i & window[y] << i;
  }
  for (int y = radius; y + radius < kSide; ++y) {
    result[y] = across[y];
    for (int i = 1; i <= radius; ++i) result[y] &= across[y - i] & across[y + i];
  }
  return result;
}

// What is set, with the eight neighbours of each of its pixels.
Window Wider(const Window& window) {
  Window across, result;
  for (int y = 0; y < kSide; ++y) across[y] = window[y] | window[y] << 1 | window[y] >> 1;
  for (int y = 0; y < kSide; ++y) {
    result[y] = across[std::max(y - 1, 0)] | across[y] | across[std::min(y + 1, kSide - 1)];
  }
  return result;
}

Window Inverted(Window window) {
  for (uint64_t& row : window.rows) row = ~row;
  return window;
}

Window Thinner(const Window& window) { return Inverted(Wider(Inverted(window))); }

// One place of a board, and what of it can be judged.
struct Place {
  Window certain, possible, other, judged;
};

// How many bits of each byte are set.
uint64_t BitsOfBytes(uint64_t word) {
  word -= word >> 1 & 0x5555555555555555;
  word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
  return (word + (word >> 4)) & 0x0f0f0f0f0f0f0f0f;
}

int SumOfBytes(uint64_t word) {
  const uint64_t pairs = (word & 0x00ff00ff00ff00ff) + (word >> 8 & 0x00ff00ff00ff00ff);
  return static_cast<int>(pairs * 0x0001000100010001 >> 48);
}

struct Move {
  int x, y;
};

// How many pixels differ when the tested board is moved, not more than `limit` of them counted.
int Misfit(const Place& place, const Window& counted, Move move, int limit) {
  constexpr int kAtOnce = 16;  // rows, of which bytes can sum the bits
  int misfit = 0;
  for (int top = 0; top < kSide && misfit < limit; top += kAtOnce) {
    uint64_t sums = 0;
    for (int y = top; y < top + kAtOnce; ++y) {
      if (counted[y] == 0) continue;
      const uint64_t other = place.other.Moved(y, move.x, move.y);
      sums +=
          BitsOfBytes(((place.certain[y] & ~other) | (other & ~place.possible[y])) & counted[y]);
    }
    misfit += SumOfBytes(sums);
  }
  return misfit;
}

struct Fit {
  Move move = {0, 0};
  int misfit = 0;  // pixels that differ, and what the move costs
};

// Where the tested board fits the good one best; small moves are preferred. The search begins
// without a move and goes on from neighbour to neighbour as long as one fits better.
Fit BestFit(const Place& place, int reach) {
  constexpr int kPerSquare = 4;  // pixels that must fit better, for a move by one
  const uint64_t inner = ~uint64_t{0} >> (2 * reach) << reach;
  Window counted;  // what is known wherever the board is moved
  for (int y = reach; y < kSide - reach; ++y) counted[y] = inner & place.judged[y];
  Move best = {0, 0};
  int least = Misfit(place, counted, best, kSide * kSide);
  for (bool better = true; better;) {
    better = false;
    const Move middle = best;
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) {
        const Move move = {middle.x + dx, middle.y + dy};
        if (std::max(std::abs(move.x), std::abs(move.y)) > reach) continue;
        const int price = kPerSquare * (move.x * move.x + move.y * move.y);
        if (price >= least) continue;
        const int cost = price + Misfit(place, counted, move, least - price);
        if (cost >= least) continue;
        least = cost;
        best = move;
        better = true;
      }
    }
  }
  return {best, least};
}

// Leaves of what differs only what is as wide as the tolerance and, however thin, what lies so deep
// in material or ground that no edge can have come there.
Window Real(const Window& differs, const Window& own, int tolerance) {
  const Window deep = Deep(own, tolerance);
  Window real = Opened(differs, tolerance);
  for (int y = 0; y < kSide; ++y) real[y] |= differs[y] & deep[y];
  return real;
}

// What really differs where a place fits best, at its position on the tested picture.
struct Differences {
  Window missing, extra;
};

Differences DifferencesOf(const Place& place, Move move, int tolerance) {
  Window lost, added, ground;
  for (int i = 0; i < kSide; ++i) {
    const uint64_t moved = place.other.Moved(i, move.x, move.y);
    ground[i] = ~place.possible[i];
    lost[i] = place.certain[i] & ~moved & place.judged[i];
    added[i] = moved & ground[i] & place.judged[i];
  }
  lost = Real(lost, place.certain, tolerance);
  added = Real(added, ground, tolerance);
  Differences differences;
  for (int i = 0; i < kSide; ++i) {
    differences.missing[i] = lost.Moved(i, -move.x, -move.y);
    differences.extra[i] = added.Moved(i, -move.x, -move.y);
  }
  return differences;
}

// Whether there are any in the middle part of the window and `around` it.
bool Any(const Differences& differences, int around) {
  const int begin = kAround - around, end = kSide - begin;
  const uint64_t columns = ~uint64_t{0} >> (2 * begin) << begin;
  uint64_t any = 0;
  for (int y = begin; y < end; ++y) any |= differences.missing[y] | differences.extra[y];
  return (any & columns) != 0;
}

// Edges that wander by as much on both sides of a track fit nowhere. Where the place fits much
// better with all edges a pixel farther out, or in, its tracks are wider, or narrower: and where
// nothing differs besides, nothing does.
Differences Judge(const Place& place, int reach, int tolerance) {
  constexpr int kGain = 24;  // pixels that must fit better
  constexpr int kNear = 8;   // pixels around the place: what differs there belongs to a defect here
  const Fit fit = BestFit(place, reach);
  const Differences result = DifferencesOf(place, fit.move, tolerance);
  if (!Any(result, 0)) return result;
  for (const Window& other : {Wider(place.other), Thinner(place.other)}) {
    Place changed = place;
    changed.other = other;
    const Fit changedFit = BestFit(changed, reach);
    if (changedFit.misfit > fit.misfit - kGain) continue;
    const Differences besides = DifferencesOf(changed, changedFit.move, tolerance);
    if (!Any(besides, kNear)) return {};
  }
  return result;
}

// ---- where pictures were cut --------------------------------------------------------------------

using Profile = std::vector<int>;

int At(const Profile& profile, int i) { return profile[static_cast<size_t>(i)]; }

// Places where content ends, walking in from where there is none: those at which half of what lies
// close behind is reached at once.
std::vector<int> CutsOf(const Profile& profile, int direction) {
  constexpr int kBlank = 8, kBehind = 8, kSteep = 3;
  constexpr int kDust = 200;  // up to one pixel in so many of the length is no content
  const int length = static_cast<int>(profile.size());
  std::vector<int> cuts;
  int blank = 0;
  for (int i = 0; i < length; ++i) {
    const int at = direction > 0 ? length - 1 - i : i;
    if (At(profile, at) <= length / kDust) {
      ++blank;
      continue;
    }
    if (blank >= kBlank && i + kBehind < length) {
      int most = 0, steps = 0;
      for (int k = 0; k <= kBehind; ++k) most = std::max(most, At(profile, at - k * direction));
      while (2 * At(profile, at - steps * direction) < most) ++steps;
      if (steps <= kSteep) cuts.push_back(at - steps * direction);
    }
    blank = 0;
  }
  return cuts;
}

// For each row, or column, whether it is judged: 0 near a cut that lies elsewhere on the other
// picture, 1 everywhere else.
std::vector<char> Judged(const Profile& good, const Profile& other) {
  constexpr int kLeast = 2, kMost = 10;  // pixels between the cuts
  constexpr int kNear = 4;  // as far as a local move may bring in what lies beyond a cut
  constexpr int kInside = 2;
  const int length = static_cast<int>(good.size());
  std::vector<char> judged(good.size(), 1);
  for (const int direction : {1, -1}) {
    const std::vector<int> otherCuts = CutsOf(other, direction);
    for (const int g : CutsOf(good, direction)) {
      for (const int o : otherCuts) {
        if (std::abs(g - o) < kLeast || std::abs(g - o) > kMost) continue;
        // The same content ends at both, rather than a defect that reaches out of it.
        const int a = At(good, g - kInside * direction), b = At(other, o - kInside * direction);
        if (2 * a < b || 2 * b < a) continue;
        const int first = std::max(std::min(g, o) - kNear, 0);
        const int last = std::min(std::max(g, o) + kNear, length - 1);
        std::fill(judged.begin() + first, judged.begin() + last + 1, char{0});
      }
    }
  }
  return judged;
}

bool Any(const GreyImage& plane, int x, int y, int width, int height) {
  uint64_t any = 0;
  for (int row = y; row < y + height; ++row) {
    const unsigned char* from = plane.rows[row] + x;
    if (width < kCell) {
      any |= std::memchr(from, 255, static_cast<size_t>(width)) != nullptr;
    } else {
      for (int i = 0; i < kCell; i += 8) any |= EightBytes(from + i);
    }
  }
  return any != 0;
}

}  // namespace

MaterialProfiles CountMaterial(const GreyImage& plane, int frame) {
  constexpr int kMostSummed = 255;  // ones, in a byte
  const int width = plane.width - 2 * frame, height = plane.height - 2 * frame;
  const int words = width / 8;
  MaterialProfiles profiles = {std::vector<int>(static_cast<size_t>(height)),
                               std::vector<int>(static_cast<size_t>(width))};
  std::vector<uint64_t> sums(static_cast<size_t>(words));  // eight columns each
  for (int top = 0; top < height; top += kMostSummed) {
    std::fill(sums.begin(), sums.end(), 0);
    for (int y = top; y < std::min(top + kMostSummed, height); ++y) {
      const unsigned char* row = plane.rows[y + frame] + frame;
      int count = 0;
      uint64_t sum = 0;  // of every eighth column each
      for (int i = 0; i < words; ++i) {
        const uint64_t low = EightBytes(row + 8 * i) & kLowBits;
        sums[static_cast<size_t>(i)] += low;
        sum += low;
        if (i % kMostSummed != kMostSummed - 1 && i != words - 1) continue;
        count += SumOfBytes(sum);
        sum = 0;
      }
      for (int x = 8 * words; x < width; ++x) {
        count += row[x] & 1;
        profiles.columns[static_cast<size_t>(x)] += row[x] & 1;
      }
      profiles.rows[static_cast<size_t>(y)] = count;
    }
    for (int x = 0; x < 8 * words; ++x) {
      profiles.columns[static_cast<size_t>(x)] +=
          static_cast<int>(sums[static_cast<size_t>(x / 8)] >> (x % 8 * 8) & 255);
    }
  }
  return profiles;
}

void CheckLocally(const BoardPlanes& planes, int tolerance, GreyImage& missing, GreyImage& extra) {
  constexpr int kFarthest =
      4;  // pixels: moved farther, a pattern of tracks would fit its neighbour
  const int reach = std::min(tolerance, kFarthest), frame = planes.frame;
  const int width = missing.width - 2 * frame, height = missing.height - 2 * frame;
  const MaterialProfiles other = CountMaterial(planes.other, frame);
  const auto rows = Judged(planes.certainProfiles.rows, other.rows);
  const auto columns = Judged(planes.certainProfiles.columns, other.columns);
  const auto isJudged = [](const std::vector<char>& judged, int at) {
    return at < 0 || at >= static_cast<int>(judged.size()) || judged[static_cast<size_t>(at)];
  };
  for (int top = 0; top < height; top += kCell) {
    for (int left = 0; left < width; left += kCell) {
      const int x = left + frame, y = top + frame;
      const int wide = std::min(kCell, width - left), high = std::min(kCell, height - top);
      if (!Any(missing, x, y, wide, high) && !Any(extra, x, y, wide, high)) continue;
      Place place = {Pack(planes.certain, x - kAround, y - kAround),
                     Pack(planes.possible, x - kAround, y - kAround),
                     Pack(planes.other, x - kAround, y - kAround),
                     {}};
      uint64_t judgedColumns = 0;
      for (int i = 0; i < kSide; ++i) {
        judgedColumns |= uint64_t{isJudged(columns, left - kAround + i)} << i;
      }
      for (int i = 0; i < kSide; ++i) {
        place.judged[i] = isJudged(rows, top - kAround + i) ? judgedColumns : 0;
      }
      const Differences differences = Judge(place, reach, tolerance);
      Unpack(differences.missing, x, y, wide, high, missing);
      Unpack(differences.extra, x, y, wide, high, extra);
    }
  }
}

}  // namespace quillon::kit
