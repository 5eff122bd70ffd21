// quillon_golden make FILE      writes the golden digests, by the plain forms
// quillon_golden compare FILE   fails where the plain forms would write something else
// quillon_golden check FILE     fails where the exports of the library compute something else
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "golden/golden.h"

using namespace quillon::test::golden;

int main(int argc, char** argv) {
  const char* command = argc == 3 ? argv[1] : "";
  if (!std::strcmp(command, "make")) {
    std::ofstream file(argv[2], std::ios::binary);
    file << MakeFile();
    return file.flush() ? 0 : 1;
  }
  std::ifstream file(argc == 3 ? argv[2] : "", std::ios::binary);
  if (!file || (std::strcmp(command, "check") && std::strcmp(command, "compare"))) {
    std::fprintf(stderr, "usage: quillon_golden make|compare|check FILE\n");
    return 2;
  }
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!std::strcmp(command, "compare")) {
    const bool same = MakeFile() == text;
    std::puts(same ? "made as it is by the plain forms" : "the plain forms make another file");
    return same ? 0 : 1;
  }
  const Comparison found = CheckFile(text);
  for (const std::string& difference : found.differences) std::puts(difference.c_str());
  if (!found.differences.empty()) {
    std::printf("%zu of %zu lines differ\n", found.differences.size(), found.lines);
    return 1;
  }
  std::printf("%zu golden lines hold, measurements within %.1g\n", found.lines, found.farthest);
  return found.lines > 0 ? 0 : 1;
}
