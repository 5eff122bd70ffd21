// quillon: the command-line host.
#include <exception>
#include <new>

#include "apps/quillon/system/standard_streams.h"
#include "commands.h"

int main(int argc, char** argv) {
  using namespace quillon::app;
  PrepareStandardStreams();
  try {
    constexpr int kNotAllPassed = 3;
    int code = 0;
    try {
      code = RunCommandLine(argc, argv, "Quillon: find, measure and judge what the camera sees.",
                            AddCommands);
    } catch (const NotAllPassed&) {
      code = kNotAllPassed;
    }
    FlushOutput();
    return code;
  } catch (const std::bad_alloc&) {
    Warn("there is not enough memory");
    return 1;
  } catch (const std::exception& error) {
    Warn(error.what());
    return 1;
  }
}
