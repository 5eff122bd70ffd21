#include "options.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/quillon/system/standard_streams.h"
#include "kit/errors.h"
#include "kit/text/text.h"

namespace quillon::app {

using namespace kit;

void AddPictureToRead(Command command, const char* name, std::string& path) {
  command.AddFileToRead(name, path, std::string("picture to read (") + kReadFormats + ")")
      .Required();
}

void AddPictureToRead(Command command, const char* name, std::vector<std::string>& paths) {
  command.AddFileToRead(name, paths, std::string("pictures to read (") + kReadFormats + ")")
      .Required();
}

void AddPictureToWrite(Command command, const char* name, std::string& path) {
  command.AddFileToWrite(name, path, "picture to write (.png, .bmp)", CheckPictureName).Required();
}

void AddReadingOptions(Command command, Reading& reading) {
  command
      .AddOption("--depth", reading.depth,
                 "bits that are used of 16-bit samples (default: as the file says, or all)")
      .ShownAs("BITS")
      .Within(8, 16);
  constexpr int kMostPixels = 32767 * 32767;
  command.AddOption("--max-pixels", reading.maxPixels, "pictures of more pixels are refused")
      .ShownAs("N")
      .WithDefaultShown()
      .Within(1, kMostPixels);
  reading.note = [](const std::string& note) { Warn("note: " + note); };
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
