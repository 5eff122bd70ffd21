// Image files that are not what they say.
#include <gtest/gtest.h>

#include "cli/host.h"

namespace quillon::test {

void ExpectRefused(const std::string& path, const std::string& file) {
  WriteText(path, file);
  const Answer answer = Quillon({"gray", path, path + ".png"});
  EXPECT_EQ(answer.exitCode, 1) << path;
  EXPECT_NE(answer.err.find("cannot read image '" + path + "'"), std::string::npos) << answer.err;
}

// A table of 16 x 255 codes where 256 have room. Found by a fuzzer: the decoder wrote them over
// whatever followed.
TEST(ImageFiles, JpegOfTooManyCodesIsRefused) {
  const Scratch folder;
  for (char table : {'\x00', '\x03', '\x10', '\x13'}) {
    std::string file = "\xFF\xD8\xFF\xC4\x10\x03";
    file += table;
    file += std::string(16, '\xFF') + std::string(16 * 255, 'x') + "\xFF\xD9";
    ExpectRefused(folder / ("codes" + std::to_string(table) + ".jpg"), file);
  }
}

// Sizes beyond 32 bits, which come back as large, as small and as negative ones.
TEST(ImageFiles, PgmOfImpossibleSizesIsRefused) {
  const Scratch folder;
  for (const char* size :
       {"2999999990 4", "4 2147483648", "4294967297 4294967296", "32768 1", "0 7"}) {
    ExpectRefused(folder / "sizes.pgm", std::string("P5 ") + size + " 255\n" + "pixels");
  }
}

}  // namespace quillon::test
