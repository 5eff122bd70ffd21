// A command for each operation that makes a picture: quillon sobel IN OUT, quillon add A B OUT.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "arguments.h"
#include "commands.h"
#include "kit/images/image_files.h"
#include "kit/report/before_after.h"
#include "options.h"

namespace quillon::app {
namespace {

struct Options {
  std::string a, b, out, report;
  Reading reading;
};

void Report(const Operation& operation, const Options& options, const ReadyOperation& ready,
            const Source& before, const Content& after) {
  const std::vector<Detail> details = ready.Details();
  Findings findings{.key = "details"};
  if (!details.empty()) findings.rows.emplace_back(details.size());
  for (size_t i = 0; i < details.size(); ++i) {
    findings.columns.push_back({details[i].key, details[i].heading, 0});
    findings.rows[0][i] = details[i].value;
  }
  std::string title = std::string(operation.name) + " of " + options.a;
  std::replace(title.begin(), title.begin() + std::strlen(operation.name), '-', ' ');
  title[0] = static_cast<char>(std::toupper(title[0]));
  const auto write = [&](const auto& from, const auto& to) {
    WriteBeforeAfter(options.report, title, from, to, findings);
  };
  const auto writeFrom = [&](const auto& from) {
    if (operation.output == Kind::kColour) return write(from, after.colour);
    write(from, after.picture);
  };
  if (operation.inputs[0] == Kind::kColour) return writeFrom(before.colour);
  writeFrom(before.grey);
}

void Run(const Operation& operation, const Options& options, Values values) {
  Source a, b;
  a.Read(options.a, operation.inputs[0], options.reading);
  if (operation.InputCount() == 2) b.Read(options.b, operation.inputs[1], options.reading);
  ReadyOperation ready(operation, std::move(values), {"", options.reading});
  Content result;
  try {
    ready.Run(a.View(), b.View(), result);
  } catch (const Failure& failure) {
    throw Failure("'" + options.a + "': " + failure.what());
  }
  if (operation.output == Kind::kColour) {
    WriteImage(options.out, result.colour);
  } else {
    WriteImage(options.out, result.picture);
  }
  if (!options.report.empty()) Report(operation, options, ready, a, result);
}

}  // namespace

void AddPictureOperation(Command top, const Operation& operation) {
  auto options = std::make_shared<Options>();
  const auto arguments = std::make_shared<Arguments>(operation);
  const Command command = AddOperation(top, operation);
  const bool isPair = operation.InputCount() == 2;
  AddPictureToRead(command, isPair ? "A" : "IN", options->a);
  if (isPair) AddPictureToRead(command, "B", options->b);
  AddPictureToWrite(command, "OUT", options->out);
  AddReadingOptions(command, options->reading);
  arguments->AddOptions(command);
  AddBeforeAfterOption(command, options->report);
  command.Runs([&operation, options, arguments] { Run(operation, *options, arguments->Read()); });
}

}  // namespace quillon::app
