#include "options.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "errors.h"

namespace quillon::app {

void AddPictureToRead(CLI::App& command, const char* name, std::string& path) {
  command.add_option(name, path, "picture to read (PNG, JPEG, BMP, PGM)")->required();
}

void AddPictureToWrite(CLI::App& command, const char* name, std::string& path) {
  command.add_option(name, path, "picture to write (.png, .bmp)")->required();
}

void AddBeforeAfterOption(CLI::App& command, std::string& report) {
  command.add_option("--report", report, "write a page with both pictures (.html)")
      ->type_name("FILE");
}

void AddCorrectionArguments(CLI::App& command, Correction& correction) {
  AddPictureToRead(command, "IN", correction.in);
  command.add_option("PARAMS", correction.parameters, "parameter file to read")->required();
  AddPictureToWrite(command, "OUT", correction.out);
  AddBeforeAfterOption(command, correction.report);
}

void AddAngleOption(CLI::App& command, std::vector<double>& angle) {
  command.add_option("--angle", angle, "search these angles, in degrees clockwise")
      ->expected(2)
      ->type_name("MIN MAX")
      ->check(CLI::Range(-360.0, 360.0));
}

void RequireOrder(const char* option, const std::vector<double>& range) {
  if (range.empty() || range[0] <= range[1]) return;
  throw Failure(std::string(option) + ": MIN is greater than MAX");
}

void AddFormatOptions(CLI::App& command, Output& output) {
  CLI::Option* json = command.add_flag("--json", output.json, "print JSON instead of a table");
  command.add_flag("--csv", output.csv, "print CSV instead of a table")->excludes(json);
}

void AddOutputOptions(CLI::App& command, Output& output) {
  AddFormatOptions(command, output);
  command.add_option("--report", output.report, "write a page with pictures and table (.html)")
      ->type_name("FILE");
  command.add_option("--draw", output.drawn, "write the picture with the findings (.png, .bmp)")
      ->type_name("FILE");
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
