// Arguments and options that many commands share, and the printing that follows them.
#pragma once

#include <string>
#include <vector>

#include "command_line.h"
#include "kit/images/image_files.h"
#include "kit/report/findings.h"
#include "kit/report/report.h"

namespace quillon::app {

// A required argument that names a picture to read, or to write.
void AddPictureToRead(Command command, const char* name, std::string& path);
void AddPictureToRead(Command command, const char* name, std::vector<std::string>& paths);
void AddPictureToWrite(Command command, const char* name, std::string& path);

// --depth BITS, --max-pixels N: how the command's pictures are read. What has to be said of a file
// goes to standard error.
void AddReadingOptions(Command command, kit::Reading& reading);

// --report FILE: a page with the pictures before and after.
void AddBeforeAfterOption(Command command, std::string& report);

struct Output {
  bool json = false;
  bool csv = false;
  std::string report;  // files that are wanted, where not empty: a page,
  std::string drawn;   // and a picture
  bool WantsPictures() const { return !report.empty() || !drawn.empty(); }
};

// --json, --csv: one of them at most.
void AddFormatOptions(Command command, Output& output);

// The same, and --report FILE and --draw FILE.
void AddOutputOptions(Command command, Output& output);

// Text, JSON or CSV on standard output.
void Print(const Output& output, const kit::Findings& findings);

// The page and the picture, those that are wanted.
void WritePictures(const Output& output, const kit::Report& report, const kit::Findings& findings);

}  // namespace quillon::app
