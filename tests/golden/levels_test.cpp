// Every operation at every instruction-set level: the golden digests, and the plain forms on images
// of every width. Exports take the best level there is, and have no switch: this program's linker
// lets their call arrive here (--wrap).
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "golden/golden.h"
#include "quillon/quillon.h"
#include "support/levels.h"

namespace {
const quillon::Kernels* chosenLevel = nullptr;
}

// A reference travels as a pointer.
extern "C" {
const quillon::Kernels* __real__ZN7quillon11BestKernelsEv();
const quillon::Kernels* __wrap__ZN7quillon11BestKernelsEv();

const quillon::Kernels* __wrap__ZN7quillon11BestKernelsEv() {
  return chosenLevel ? chosenLevel : __real__ZN7quillon11BestKernelsEv();
}
}

// Second names, which the linker of the library gives.
namespace quillon {
uint8_t IxColorToLab(const ColourImage* source, ColourImage* result, const uint8_t* table0,
                     const uint8_t* table1, const uint8_t* table2) {
  return IxColorToHSI(source, result, table0, table1, table2);
}
uint8_t IxGetCIELab(const ColourImage* source, GreyImage* result, int channel) {
  return IxGetHSI(source, result, channel);
}
uint8_t IxGetCIELabPoint(const ColourImage* image, int x, int y, uint8_t* channels) {
  return IxGetHSIPoint(image, x, y, channels);
}
}  // namespace quillon

namespace quillon::test {
namespace {

// A file beside the test program.
std::string Text(const std::string& name) {
  const std::filesystem::path program = testing::internal::GetArgvs()[0];
  std::ifstream file(program.parent_path() / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST(Golden, ExportsComputeTheDigestsAtEveryLevel) {
  const std::string text = Text("digests.txt");
  ForEachLevel([&](const Kernels& level) {
    chosenLevel = &level;
    ASSERT_EQ(&BestKernels(), &level) << "exports do not see the level";
    const golden::Comparison found = golden::CheckFile(text);
    for (const std::string& difference : found.differences) ADD_FAILURE() << difference;
    EXPECT_GT(found.lines, 1000u);
  });
  chosenLevel = nullptr;
}

// Everything that one side of an operation computes.
std::vector<uint8_t> AllBytes(const golden::Compute& side, const golden::Picture& picture) {
  std::vector<uint8_t> bytes;
  golden::Digest digest(&bytes);
  side(picture, digest);
  return bytes;
}

// Two contents a size, in turn.
TEST(Operations, MatchTheirPlainFormsAtEveryLevelAndWidth) {
  const std::vector<golden::Operation> operations = golden::AllOperations();
  golden::Picture picture;
  int failures = 0;
  size_t turn = 0;
  for (const Size& size : Sizes()) {
    ++turn;
    for (Content content : {kContents[turn % 5], kContents[(turn + 2) % 5]}) {
      picture.Draw(size, content);
      for (const golden::Operation& operation : operations) {
        if (!operation.everyPicture) continue;
        const std::vector<uint8_t> expected = AllBytes(operation.plain, picture);
        ForEachLevel([&](const Kernels& level) {
          chosenLevel = &level;
          const std::vector<uint8_t> actual = AllBytes(operation.exported, picture);
          if (actual == expected) return;
          const auto [a, e] = std::ranges::mismatch(actual, expected);
          ADD_FAILURE() << operation.name << " on " << size.width << " x " << size.height
                        << ", content " << static_cast<int>(content) << ": byte "
                        << a - actual.begin() << " of all that it computes is "
                        << (a == actual.end() ? -1 : *a) << " instead of "
                        << (e == expected.end() ? -1 : *e);
          ++failures;
        });
        chosenLevel = nullptr;
        ASSERT_LT(failures, 20);
      }
    }
  }
}

// A name that no line carries is an export whose results nothing compares.
TEST(Golden, EveryExportIsNamed) {
  const std::string text = Text("digests.txt");
  std::istringstream exports(Text("quillon.def"));
  std::string line;
  int found = 0;
  while (std::getline(exports, line)) {
    const size_t begin = line.find_first_not_of(' ');
    if (begin != 2 || line[begin] == ';') continue;
    const std::string name = line.substr(begin, line.find_first_of(" \r", begin) - begin);
    ++found;
    // Their results are empty, or seen through all that is done with them.
    const bool makesOrReleases = name.starts_with("CreateRLE") || name.starts_with("Destroy") ||
                                 name.starts_with("IxDestroy") || name == "IxCreateNCCTool" ||
                                 name == "IxCreateGeoTool";
    const auto named = [&] {
      for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        const char next = text[at + name.size()];
        if (next == ' ' || next == '(') return true;
      }
      return false;
    };
    EXPECT_NE(makesOrReleases, named()) << name;
  }
  EXPECT_EQ(found, 117);
}

}  // namespace quillon::test
