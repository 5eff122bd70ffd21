#include "morph/morph.h"

#include <climits>

#include "morph/morph_reference.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace quillon::test {
namespace {

using reference::Operation;

constexpr Operation kOperations[] = {
    Operation::kDilate,   Operation::kErode,       Operation::kOpen,       Operation::kClose,
    Operation::kGradient, Operation::kWhiteTopHat, Operation::kBlackTopHat};

void Apply(Operation operation, const Kernels& level, GreyImage& source, GreyImage& result,
           const Element& element) {
  switch (operation) {
    case Operation::kDilate:
      return Dilate(level, source, result, element);
    case Operation::kErode:
      return Erode(level, source, result, element);
    case Operation::kOpen:
      return Open(level, source, result, element);
    case Operation::kClose:
      return Close(level, source, result, element);
    case Operation::kGradient:
      return Gradient(level, source, result, element);
    case Operation::kWhiteTopHat:
      return WhiteTopHat(level, source, result, element);
    case Operation::kBlackTopHat:
      return BlackTopHat(level, source, result, element);
  }
}

std::string Name(Operation operation, const Element& element) {
  static const char* const kNames[] = {"dilate",   "erode",         "open",         "close",
                                       "gradient", "white top-hat", "black top-hat"};
  static const char* const kShapes[] = {"rectangle", "diamond", "circle"};
  return std::string(kNames[static_cast<int>(operation)]) + " by " +
         kShapes[static_cast<int>(element.shape)] + ", passes " +
         std::to_string(element.horizontalPasses) + " " + std::to_string(element.verticalPasses) +
         " " + std::to_string(element.passes);
}

// In place, gradients and top-hats leave an image behind at every call, and a process has room for
// 65,530 mappings: one such call in seven is made. Elements and operations come in tens and threes,
// so each of them has its turn.
bool IsLeftOut(Operation operation) {
  if (operation < Operation::kGradient) return false;
  static int calls = 0;
  return calls++ % 7 != 0;
}

// Both images with all their bytes, in place, into a stale image and into one of another size.
void ExpectPassByPass(Operation operation, const Kernels& level, const GreyImage& picture,
                      const Element& element) {
  static GreyImage source, expectedSource, result, expected;  // stores that all calls share
  for (int destination = 0; destination < 3; ++destination) {
    const bool isInPlace = destination == 0;
    if (isInPlace && IsLeftOut(operation)) continue;
    Restore(picture, source);
    Restore(picture, expectedSource);
    if (destination == 1) {
      FillStale(result, picture.width, picture.height);
    } else {
      result.Destroy();
    }
    Apply(operation, level, source, isInPlace ? source : result, element);
    reference::Apply(operation, expectedSource, isInPlace ? expectedSource : expected, element);
    ASSERT_EQ(Bytes(source), Bytes(expectedSource))
        << Name(operation, element) << (isInPlace ? " in place: " : ", source: ")
        << Difference(source, expectedSource);
    if (isInPlace) continue;
    ASSERT_EQ(Bytes(result), Bytes(expected))
        << Name(operation, element) << ", result: " << Difference(result, expected);
  }
}

void ExpectPassByPass(const Kernels& level, const GreyImage& picture, const Element& element) {
  for (Operation operation : kOperations) {
    ExpectPassByPass(operation, level, picture, element);
    if (testing::Test::HasFatalFailure()) return;
  }
}

}  // namespace

TEST(Morph, EveryLevelMatchesItsPassesAtEveryWidthAndContent) {
  ForEachLevelAndImage([](const Kernels& level, const GreyImage& image) {
    if (image.width < 3 || image.height < 3) return;
    for (const Element& element :
         {Rectangle(1, 1), Rectangle(2, 2), Rectangle(3, 3), Rectangle(4, 2), Diamond(1),
          Diamond(3), Diamond(5), Circle(2), Circle(3), Circle(5)}) {
      ExpectPassByPass(level, image, element);
      if (testing::Test::HasFatalFailure()) return;
    }
  });
}

// The algebra of borders and last rows: every size up to 40 x 40 with counts that end inside, at
// and beyond the image.
TEST(Morph, EverySmallSizeMatchesItsPasses) {
  GreyImage image;
  Random random(4);
  for (int width = 3; width <= 40; ++width) {
    for (int height = 3; height <= 40; ++height) {
      const Content content = kContents[random.Within(0, 2) == 0 ? 4 : random.Within(0, 1)];
      Fill(image, width, height, content, random.Next());
      const Element elements[] = {Rectangle(random.Within(0, 12), random.Within(0, 12)),
                                  Rectangle(random.Within(-1, 45), random.Within(-1, 45)),
                                  Diamond(random.Within(-1, 12)),
                                  Diamond(random.Within(13, 90)),
                                  Circle(random.Within(-1, 12)),
                                  Circle(random.Within(13, 90))};
      for (const Element& element : elements) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        const Operation operation = kOperations[random.Within(0, 6)];
        for (Operation each : {Operation::kDilate, Operation::kErode, operation}) {
          ExpectPassByPass(each, BestKernels(), image, element);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(Morph, EveryCountMatchesItsPasses) {
  GreyImage image;
  for (const Size size : {Size{3, 3}, Size{3, 9}, Size{9, 3}, Size{4, 5}, Size{8, 4}, Size{17, 12},
                          Size{41, 30}, Size{70, 23}}) {
    SCOPED_TRACE(testing::Message() << size.width << " x " << size.height);
    for (uint32_t seed : {1, 2}) {
      Fill(image, size.width, size.height, seed == 1 ? Content::kNoise : Content::kExtremes, seed);
      for (int n = -1; n <= 30; ++n) {
        for (const Element& element : {Rectangle(n, 1), Rectangle(1, n), Rectangle(0, n),
                                       Rectangle(n, 0), Diamond(n), Circle(n)}) {
          ExpectPassByPass(BestKernels(), image, element);
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(Morph, LargeElementsMatchTheirPasses) {
  GreyImage image;
  Fill(image, 203, 157, Content::kNoise, 5);
  for (const Element& element : {Rectangle(25, 25), Rectangle(45, 45), Rectangle(130, 70),
                                 Diamond(37), Circle(40), Circle(41), Diamond(400), Circle(401)}) {
    ExpectPassByPass(BestKernels(), image, element);
    if (HasFatalFailure()) return;
  }
}

// Squares of long rows go by wider blocks.
TEST(Morph, SquaresOnLongRowsMatchTheirPasses) {
  GreyImage image;
  for (int width : {639, 640, 703, 1535, 1536, 1607}) {
    Fill(image, width, 11, Content::kNoise);
    ForEachLevel([&](const Kernels& level) {
      for (int n = 1; n <= 3; ++n) {
        ASSERT_NO_FATAL_FAILURE(ExpectPassByPass(level, image, Rectangle(n, n)))
            << width << " columns";
      }
    });
  }
}

// Passes without end come to the same as enough of them.
TEST(Morph, AbsurdCountsAreServedAtOnce) {
  GreyImage image, enough, result, source, other;
  Fill(image, 53, 31, Content::kNoise);
  for (int count : {1'000'000, INT_MAX, -1, INT_MIN}) {
    for (Operation operation : kOperations) {
      for (const auto& makeElement :
           {+[](int n) { return Rectangle(n, n); }, +[](int n) { return Diamond(n); },
            +[](int n) { return Circle(n); }}) {
        const Element element = makeElement(count);
        Restore(image, source);
        Restore(image, other);
        Apply(operation, BestKernels(), source, result, element);
        reference::Apply(operation, other, enough, makeElement(count > 0 ? 200 + count % 2 : 0));
        ASSERT_EQ(Bytes(result), Bytes(enough)) << Name(operation, element);
        ASSERT_EQ(Bytes(source), Bytes(other)) << Name(operation, element);
      }
    }
  }
  Fill(image, 640, 480, Content::kNoise);
  IxDilationCircle(&image, &result, INT_MAX);
  EXPECT_EQ(result.rows[100][100], 255);
}

TEST(Morph, ASinglePixelGrowsIntoTheElement) {
  const struct {
    Element element;
    int pixels, width;
  } kElements[] = {{Rectangle(2, 1), 15, 5}, {Rectangle(0, 0), 3, 3}, {Diamond(2), 13, 5},
                   {Diamond(6), 85, 13},     {Circle(2), 21, 5},      {Circle(3), 37, 7}};
  ForEachLevel([&](const Kernels& level) {
    for (const auto& expected : kElements) {
      GreyImage image, result;
      image.Create(40, 40);
      image.rows[20][20] = 255;
      Dilate(level, image, result, expected.element);
      int pixels = 0, width = 0;
      for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 40; ++x) pixels += result.rows[y][x] == 255;
      }
      for (int x = 0; x < 40; ++x) width += result.rows[20][x] == 255;
      EXPECT_EQ(pixels, expected.pixels) << Name(Operation::kDilate, expected.element);
      EXPECT_EQ(width, expected.width);
    }
  });
}

}  // namespace quillon::test
