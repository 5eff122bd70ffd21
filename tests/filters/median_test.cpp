#include "filters/median.h"

#include <algorithm>

#include "filters/filter_checks.h"
#include "filters/median_reference.h"

namespace quillon::test {
// More than one stretch of columns.
TEST(Median, WideImagesMatchItsDefinitionInAndOutOfPlace) {
  GreyImage wide;
  for (int width : {1023, 1027, 1041, 2055, 2113}) {
    for (Content content : {Content::kNoise, Content::kBinary}) {
      Fill(wide, width, 7, content);
      ExpectMatchesDefinition(Median3x3, reference::Median3x3, wide);
      ExpectMatchesDefinition(Median5x5, reference::Median5x5, wide);
    }
  }
}

TEST(Median, RowsWithoutPaddingAreNotReadBeyond) {
  for (int width : {3, 5, 9, 17, 33, 40, 65, 129}) {
    ExpectUnpaddedRowsStayInside(Median3x3, width, 5);
    ExpectUnpaddedRowsStayInside(Median5x5, width, 7);
  }
}

// All strings of five letters of `letters`, each once, one letter after another (a de Bruijn
// sequence, put together from its Lyndon words), and its beginning again.
std::vector<int> EveryFiveLetters(int letters) {
  constexpr int kLength = 5;
  std::vector<int> sequence;
  int word[kLength + 1] = {};
  const std::function<void(int, int)> extend = [&](int length, int period) {
    if (length > kLength) {
      if (kLength % period == 0) sequence.insert(sequence.end(), word + 1, word + 1 + period);
      return;
    }
    word[length] = word[length - period];
    extend(length + 1, period);
    while (++word[length] < letters) extend(length + 1, length);
  };
  extend(1, 1);
  sequence.insert(sequence.end(), {0, 0, 0, 0, 0});
  return sequence;
}

// A network of minima and maxima that is right for zeros and ones is right for all values. In six
// rows, the letter of a column says how many of its four middle pixels are one and whether its
// outer pixels are: every kind of 5 x 5 window comes up, at even and at odd places.
TEST(Median, SelectsTheMiddleOfEveryKindOfWindow) {
  constexpr int kCounts = 5;
  const std::vector<int> letters = EveryFiveLetters(2 * kCounts);
  ASSERT_EQ(letters.size(), 100'005u);
  Random random(11);
  GreyImage source, actual, expected3x3, expected5x5;
  for (int shift : {0, 1}) {
    const int width = static_cast<int>(letters.size()) + shift;
    source.Create(width, 6);
    for (int x = shift; x < width; ++x) {
      const int letter = letters[static_cast<size_t>(x - shift)];
      const int first = random.Within(0, 3);
      for (int i = 0; i < letter / 2; ++i) source.rows[1 + (first + i) % 4][x] = 1;
      source.rows[0][x] = source.rows[5][x] = static_cast<uint8_t>(letter % 2);
    }
    expected3x3.Create(width, 6);
    reference::Median3x3(source, expected3x3);
    expected5x5.Create(width, 6);
    reference::Median5x5(source, expected5x5);
    ForEachLevel([&](const Kernels& level) {
      Median3x3(level, source, actual);
      ASSERT_SAME_PIXELS(actual, expected3x3);
      Median5x5(level, source, actual);
      ASSERT_SAME_PIXELS(actual, expected5x5);
    });
  }
}

}  // namespace quillon::test
