// quillon: the command-line host.
#include <cstdio>
#include <exception>
#include <iostream>

#include "commands.h"
#include "errors.h"

int main(int argc, char** argv) {
  using namespace quillon::app;
  CLI::App app("Quillon: find, measure and judge what the camera sees.", "quillon");
  app.set_version_flag("--version", QUILLON_VERSION);
  app.require_subcommand(1);
  for (const Family* family : Families()) family->addCommands(app);
  try {
    constexpr int kNotAllPassed = 3;
    int code = 0;
    try {
      app.parse(argc, argv);
    } catch (const NotAllPassed&) {
      code = kNotAllPassed;
    }
    if (!std::cout.flush()) throw Failure("cannot write to standard output");
    return code;
  } catch (const CLI::ParseError& error) {
    constexpr int kUsage = 2;
    if (app.get_subcommands().empty() && app.remaining_size() > 0) {
      std::fprintf(stderr, "quillon: there is no command or option '%s'; --help names them\n",
                   app.remaining()[0].c_str());
      return kUsage;
    }
    return app.exit(error) == 0 ? 0 : kUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quillon: %s\n", error.what());
    return 1;
  }
}
