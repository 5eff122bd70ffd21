#include "options.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "kit/errors.h"

namespace quillon::app {

using namespace kit;

void AddPictureToRead(Command command, const char* name, std::string& path) {
  command.AddOption(name, path, "picture to read (PNG, JPEG, BMP, PGM)").Required();
}

void AddPictureToWrite(Command command, const char* name, std::string& path) {
  command.AddOption(name, path, "picture to write (.png, .bmp)").Required();
}

void AddBeforeAfterOption(Command command, std::string& report) {
  command.AddOption("--report", report, "write a page with both pictures (.html)").ShownAs("FILE");
}

void AddCorrectionArguments(Command command, Correction& correction) {
  AddPictureToRead(command, "IN", correction.in);
  command.AddOption("PARAMS", correction.parameters, "parameter file to read").Required();
  AddPictureToWrite(command, "OUT", correction.out);
  AddBeforeAfterOption(command, correction.report);
}

void AddAngleOption(Command command, std::vector<double>& angle) {
  command.AddOption("--angle", angle, "search these angles, in degrees clockwise")
      .Values(2)
      .ShownAs("MIN MAX")
      .Within(-360.0, 360.0);
}

void RequireOrder(const char* option, const std::vector<double>& range) {
  if (range.empty() || range[0] <= range[1]) return;
  throw Failure(std::string(option) + ": MIN is greater than MAX");
}

void AddFormatOptions(Command command, Output& output) {
  const Option json = command.AddFlag("--json", output.json, "print JSON instead of a table");
  command.AddFlag("--csv", output.csv, "print CSV instead of a table").Excludes(json);
}

void AddOutputOptions(Command command, Output& output) {
  AddFormatOptions(command, output);
  command.AddOption("--report", output.report, "write a page with pictures and table (.html)")
      .ShownAs("FILE");
  command.AddOption("--draw", output.drawn, "write the picture with the findings (.png, .bmp)")
      .ShownAs("FILE");
}

void Print(const Output& output, const Findings& findings) {
  if (output.json) {
    // File names need not be UTF-8; what is not is replaced.
    constexpr auto kReplace = nlohmann::ordered_json::error_handler_t::replace;
    std::cout << ToJson(findings).dump(2, ' ', false, kReplace) << '\n';
  } else if (output.csv) {
    PrintCsv(findings, std::cout);
  } else {
    PrintText(findings, std::cout);
  }
}

void WritePictures(const Output& output, const Report& report, const Findings& findings) {
  if (!output.report.empty()) WriteReport(output.report, report, findings);
  if (!output.drawn.empty()) WriteDrawnPicture(output.drawn, report);
}

}  // namespace quillon::app
