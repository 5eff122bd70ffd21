// Image files that are not what they say.
#include <gtest/gtest.h>

#include "cli/host.h"

namespace quillon::test {

// A table of 16 x 255 codes where 256 have room. Found by a fuzzer: the decoder wrote them over
// whatever followed.
TEST(ImageFiles, JpegOfTooManyCodesIsRefused) {
  const Scratch folder;
  const std::string path = folder / "codes.jpg";
  for (char table : {'\x00', '\x03', '\x10', '\x13'}) {
    std::string file = "\xFF\xD8\xFF\xC4\x10\x03";
    file += table;
    file += std::string(16, '\xFF') + std::string(16 * 255, 'x') + "\xFF\xD9";
    WriteText(path, file);
    const Answer answer = Quillon({"gray", path, folder / "out.png"});
    EXPECT_EQ(answer.exitCode, 1) << static_cast<int>(table);
    EXPECT_NE(answer.err.find("cannot read image '" + path + "'"), std::string::npos) << answer.err;
  }
}

}  // namespace quillon::test
