#include "options.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/text/text.h"

namespace quillon::app {

using namespace kit;

void AddPictureToRead(Command command, const char* name, std::string& path) {
  command.AddFileToRead(name, path, "picture to read (PNG, JPEG, BMP, PGM)").Required();
}

void AddPictureToWrite(Command command, const char* name, std::string& path) {
  command.AddFileToWrite(name, path, "picture to write (.png, .bmp)", CheckPictureName).Required();
}

void AddBeforeAfterOption(Command command, std::string& report) {
  command
      .AddFileToWrite("--report", report, "write a page with the pictures before and after (.html)")
      .ShownAs("FILE");
}

void AddFormatOptions(Command command, Output& output) {
  const Option json = command.AddFlag("--json", output.json, "print JSON instead of a table");
  command.AddFlag("--csv", output.csv, "print CSV instead of a table").Excludes(json);
}

void AddOutputOptions(Command command, Output& output) {
  AddFormatOptions(command, output);
  command.AddFileToWrite("--report", output.report, "write a page with pictures and table (.html)")
      .ShownAs("FILE");
  command
      .AddFileToWrite("--draw", output.drawn, "write the picture with the findings (.png, .bmp)",
                      CheckPictureName)
      .ShownAs("FILE");
}

void Print(const Output& output, const Findings& findings) {
  if (output.json) {
    std::cout << JsonText(ToJson(findings), 2) << '\n';
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
