// The subcommands, one file each. A function adds its subcommand with options and a callback that
// runs it; callbacks throw Failure.
#pragma once

#include <CLI/CLI.hpp>

namespace quillon::app {

void AddGray(CLI::App& app);
void AddThresholds(CLI::App& app);

}  // namespace quillon::app
