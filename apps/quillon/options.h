// Arguments and options that many commands share, and the printing that follows them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "table.h"

namespace quillon::app {

// A required argument that names a picture to read, or to write.
void AddPictureToRead(CLI::App& command, const char* name, std::string& path);
void AddPictureToWrite(CLI::App& command, const char* name, std::string& path);

struct Output {
  bool json = false;
  bool csv = false;
  std::string report;  // a page is wanted when this is not empty
};

// --json, --csv: one of them at most.
void AddFormatOptions(CLI::App& command, Output& output);

// The same, and --report FILE.
void AddOutputOptions(CLI::App& command, Output& output);

// Text, JSON or CSV on standard output.
void Print(const Output& output, const Findings& findings);

}  // namespace quillon::app
