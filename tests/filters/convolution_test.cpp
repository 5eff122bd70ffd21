#include "filters/convolution.h"

#include <climits>
#include <numeric>

#include "filters/convolution_reference.h"
#include "filters/windows.h"

namespace quillon::test {
namespace {

using Weights = std::vector<int>;

struct Kernel {
  std::string name;
  int size;
  Weights weights;
};

// Weights drawn by `draw`.
template <class Draw>
Kernel Drawn(const std::string& name, int size, const Draw& draw) {
  Kernel kernel{name, size, Weights(static_cast<size_t>(size * size))};
  for (int& weight : kernel.weights) weight = draw();
  return kernel;
}

// factor * column * row, all drawn from -most ... most.
Kernel Separable(const std::string& name, int size, int most, int factor, Random& random) {
  int column[7], row[7];
  for (int i = 0; i < size; ++i) {
    column[i] = random.Within(-most, most);
    row[i] = random.Within(-most, most);
  }
  Kernel kernel{name, size, {}};
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) kernel.weights.push_back(factor * column[i] * row[j]);
  }
  return kernel;
}

// Kernels on both sides of every choice of method, for a size.
std::vector<Kernel> KernelsOf(int size) {
  Random random(static_cast<uint32_t>(size));
  const int cells = size * size, centre = cells / 2;
  std::vector<Kernel> all;
  const auto add = [&](const std::string& name, int low, int high) {
    all.push_back(Drawn(name, size, [&] { return random.Within(low, high); }));
  };
  const auto addSingle = [&](const std::string& name, int background, int place, int weight) {
    all.push_back(Drawn(name, size, [&] { return background; }));
    all.back().weights[static_cast<size_t>(place)] = weight;
  };
  addSingle("zero", 0, 0, 0);
  addSingle("identity", 0, centre, 1);
  addSingle("first neighbour", 0, 0, 1);
  addSingle("last neighbour", 0, cells - 1, 1);
  addSingle("inverse", 0, centre, -1);
  addSingle("ones", 1, 0, 1);
  addSingle("Laplacian", -1, centre, cells - 1);
  addSingle("sharpening", -1, centre, cells);
  for (int weight : {127, 128, 129, 255, 256, 32767, 32768, -128, -129, -32768, -32769}) {
    addSingle("one of " + std::to_string(weight), 0, centre + 1, weight);
    addSingle("ones and " + std::to_string(weight), 1, 1, weight);
  }
  for (int i = 0; i < 4; ++i) {
    add("tiny", -1, 2);
    add("small", -4, 5);
    add("positive", 0, 3);
    add("bytes", -128, 127);
    add("words", -32768, 32767);
    add("positive words", 0, 32767);
    add("long", -40000, 50000);
    add("millions", -2000000, 3000000);
    all.push_back(Drawn("any", size, [&] { return static_cast<int>(random.Next()); }));
    add("huge", INT_MAX - 70000, INT_MAX);
    add("negative", INT_MIN, INT_MIN + 70000);
    all.push_back(Separable("separable", size, 3, 1, random));
    all.push_back(Separable("separable times 100", size, 9, 100, random));
    all.push_back(Separable("wide separable", size, 40, 3, random));
    all.push_back(Separable("separable beyond 32 bits", size, 180, 1000, random));
  }
  for (int weight : {INT_MIN, INT_MIN + 1, INT_MAX, INT_MAX - 1, 0x7FFF7FFF, 0x7FFF8000}) {
    addSingle("all " + std::to_string(weight), weight, 0, weight);
    addSingle("ones and " + std::to_string(weight), 1, centre, weight);
  }
  // Divisors on both sides of where quotients change from float to double, and of the least for
  // weights of 24 bits: any, and a part of their magnitudes.
  const auto addSum = [&](int most, int total) {
    add("sum of " + std::to_string(total), -most, most);
    Weights& weights = all.back().weights;
    weights[0] += total - std::accumulate(weights.begin(), weights.end(), 0);
  };
  for (int total : {8191, 8192, 8193}) addSum(300, total);
  for (int total : {4095, 4096, 4097}) addSum(70000, total), addSum(2000000, total);
  for (int total = 20000; total < 200000; total += 30000) addSum(2000000, total);
  // The largest weights of 24 bits, and the largest magnitudes of their first five and last four.
  const int largest = 32767 * 256 + 127, half = (1 << 24) - 1;
  for (int more : {0, 1}) {
    addSingle("24 bits and " + std::to_string(more), 10, centre, largest + more);
    addSingle("-24 bits and " + std::to_string(more), 3000000, 0, -32767 * 256 - 128 - more);
    for (int sign : {-1, 1}) {
      addSingle("large halves", 0, 1, half / 2 + more);
      Weights& weights = all.back().weights;
      weights[0] = sign * (half - half / 2);
      weights[5] = half / 2 + more;
      weights[8] = half - half / 2;
    }
  }
  // Nearly separable: one weight differs.
  all.push_back(Separable("almost separable", size, 20, 5, random));
  all.back().weights[static_cast<size_t>(cells - 1)] += 1;
  return all;
}

void ExpectKernel(const Kernels& level, const GreyImage& source, const Kernel& kernel) {
  GreyImage expected;
  reference::Convolve(source, kernel.size, kernel.weights, expected);
  ASSERT_NO_FATAL_FAILURE(ExpectEverywhere(source, expected,
                                           [&](const GreyImage& from, GreyImage& to) {
                                             Convolve(level, from, to, kernel.weights.data(),
                                                      kernel.size);
                                           }))
      << kernel.name << " of " << kernel.size;
}

}  // namespace

TEST(Convolution, EveryKindOfKernelMatchesItsDefinition) {
  GreyImage source;
  for (int size : {3, 5, 7}) {
    for (const Kernel& kernel : KernelsOf(size)) {
      ForEachLevel([&](const Kernels& level) {
        for (Content content : kContents) {
          for (Size each : {Size{7, 7}, {23, 9}, {75, 8}, {150, 12}}) {
            Fill(source, each.width, each.height, content);
            ASSERT_NO_FATAL_FAILURE(ExpectKernel(level, source, kernel));
          }
        }
      });
    }
  }
}

// Weights of 24 bits go by panels of columns and bands of rows.
TEST(Convolution, LargeImagesMatchTheDefinition) {
  GreyImage source;
  const Kernel kernel{"24 bits", 3, {-900001, 70000, 5, 1234567, 2000003, -7, 70001, 3, 1}};
  for (Size each : {Size{1027, 36}, {2060, 70}}) {
    Fill(source, each.width, each.height, Content::kNoise);
    ForEachLevel([&](const Kernels& level) {
      ASSERT_NO_FATAL_FAILURE(ExpectKernel(level, source, kernel));
    });
  }
}

// Pixels v v v-1 for every v: with weights d - 1 and 1, sums are d * v and the number before it,
// where quotients go wrong first.
TEST(Convolution, QuotientsAreExactForEveryDivisor) {
  GreyImage source;
  source.Create(3 * 255 + 2, 3);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < source.width; ++x) {
      source.rows[y][x] = static_cast<uint8_t>(std::min(x / 3 + 1, 255) - (x % 3 == 2));
    }
  }
  const auto check = [&](int divisor) {
    Kernel kernel{"divisor " + std::to_string(divisor), 3, Weights(9)};
    kernel.weights[4] = divisor - 1;
    kernel.weights[5] = 1;
    ForEachLevel([&](const Kernels& level) {
      ASSERT_NO_FATAL_FAILURE(ExpectKernel(level, source, kernel));
    });
  };
  for (int divisor = 1; divisor <= 9000; divisor += divisor < 300 ? 1 : 7) check(divisor);
  for (int bits = 14; bits < 31; ++bits) {
    for (int more : {-1, 0, 1}) check((1 << bits) + more);
  }
}

}  // namespace quillon::test
