// The entry of the fuzzers that take all their bytes apart as numbers: each defines Run.
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  quillon::fuzz::Input input(bytes, size);
  quillon::fuzz::Run(input);
  return 0;
}
