// What tests of the kit without memory share: a call that is made again and again, with the n-th
// allocation failing, and with all from the n-th on; and pictures to work on.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/errors.h"
#include "kit/geometry.h"
#include "kit/images/image_files.h"
#include "kit/samples/tray.h"
#include "quillon/quillon.h"
#include "reliability/inside/failing_allocations.h"

namespace quillon::kit::test {

using quillon::test::FailAllocation;
using quillon::test::FailAllocationsFrom;
using quillon::test::LiveBlocks;
using quillon::test::StopFailing;

// What one attempt came to: the result, or the message of an error of the kit's.
template <class Result>
struct Attempt {
  std::optional<Result> result;
  std::string failure;
  bool lacksMemory = false;
};

template <class Call>
auto Try(Call& call, void (*fail)(int n), int n) {
  Attempt<decltype(call())> attempt;
  std::string message(400, ' ');  // where the message finds room without asking for any
  message.clear();
  fail(n);
  try {
    attempt.result.emplace(call());
  } catch (const Failure& failure) {
    message = failure.what();
  } catch (const std::exception& error) {
    message = "not the kit's own error: ";
    message += error.what();
  }
  attempt.lacksMemory = StopFailing();
  attempt.failure = message;
  return attempt;
}

enum class But {
  kNothing,
  kKeepsMemory,  // it works on an object that lives on, and so may hold more or less than before
  kMakesJson,    // the JSON library leaks what it was making
};

// Of each call so many allocations fail in turn, and of the others more and more rarely one.
#ifdef QUILLON_SANITIZED
constexpr int kAll = 5;  // each takes long there
#else
constexpr int kAll = 25;
#endif

template <class Call>
void EndsWell(const std::string& name, Call call, But but = But::kNothing) {
  const auto reference = call();
  for (auto fail : {FailAllocation, FailAllocationsFrom}) {
    for (int n = 1;; n += 1 + n / kAll) {
      const std::string where = name + ", allocation " + std::to_string(n) +
                                (fail == FailAllocation ? "" : " and all after it");
      const long before = LiveBlocks();
      bool isOver, endsWell;
      {
        const auto attempt = Try(call, fail, n);
        isOver = !attempt.lacksMemory;
        if (attempt.result) {
          endsWell = *attempt.result == reference;
          EXPECT_TRUE(endsWell) << where << ": " << testing::PrintToString(*attempt.result)
                                << " instead of " << testing::PrintToString(reference);
        } else {
          endsWell = !isOver && attempt.failure.find("memory") != std::string::npos;
          EXPECT_TRUE(endsWell) << where << ": " << attempt.failure;
        }
      }
      if (!endsWell) return;
      const bool mayKeep = but == But::kKeepsMemory || but == But::kMakesJson;
      if (!mayKeep && LiveBlocks() != before) {
        ADD_FAILURE() << where << ": leaks";
        return;
      }
      if (isOver) break;
    }
  }
}

template <class Things, class Value>
double Sum(const Things& things, Value value) {
  double sum = static_cast<double>(things.size());
  for (const auto& thing : things) sum += static_cast<double>(std::invoke(value, thing));
  return sum;
}

inline double Greys(const GreyImage& image) {
  double sum = image.width;
  for (int y = 0; image.bits && y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) sum = sum * 1.0000001 + image.rows[y][x];
  }
  return sum;
}
inline double Greys(const ColourImage& image) {
  double sum = image.width;
  for (int y = 0; image.bits && y < image.height; ++y) {
    for (int x = 0; x < 3 * image.width; ++x) sum = sum * 1.0000001 + image.rows[y][x];
  }
  return sum;
}

constexpr auto kX = [](const Point& point) { return point.x; };

class KitMemory : public testing::Test {
 protected:
  KitMemory() {
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
    std::vector<DrawnPart> parts;
    DrawTray(3, 200, 150, colour, parts);
    IxColorToGray(&colour, &grey);
    DrawBracket(colourPattern);
    IxColorToGray(&colourPattern, &pattern);
    WriteImage(picture, colour);
    WriteImage("pattern.png", pattern);
    for (double at : {0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0}) {
      points.push_back({20 + 10 * std::cos(at), 30 + 10 * std::sin(at)});
    }
  }
  ~KitMemory() override {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
  }

  // Names are short, and so take no memory where the test itself copies them.
  const std::filesystem::path before = std::filesystem::current_path();
  const std::string folder = testing::TempDir() + "quillon_kit_memory";
  const std::string picture = "tray.png";
  ColourImage colour, colourPattern;
  GreyImage grey, pattern;
  std::vector<Point> points;
};

}  // namespace quillon::kit::test
