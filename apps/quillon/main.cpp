// quillon: the command-line host.
#include <cstdio>
#include <exception>
#include <iostream>

#include "commands.h"
#include "kit/errors.h"

namespace {

void AddCommands(quillon::app::Command top) {
  for (const quillon::app::Family* family : quillon::app::Families()) family->addCommands(top);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace quillon::app;
  try {
    constexpr int kNotAllPassed = 3;
    int code = 0;
    try {
      code = RunCommandLine(argc, argv, "Quillon: find, measure and judge what the camera sees.",
                            AddCommands);
    } catch (const NotAllPassed&) {
      code = kNotAllPassed;
    }
    if (!std::cout.flush()) throw Failure("cannot write to standard output");
    return code;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quillon: %s\n", error.what());
    return 1;
  }
}
