// quillon list: every operation of the library and the command that reaches it.
#include <algorithm>
#include <cctype>
#include <memory>

#include "commands.h"
#include "kit/errors.h"
#include "options.h"

namespace quillon::app {
namespace {

bool ContainsIgnoringCase(std::string_view text, std::string_view part) {
  const auto same = [](unsigned char a, unsigned char b) {
    return std::tolower(a) == std::tolower(b);
  };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

Findings ListOperations(std::string_view part) {
  Findings findings{.key = "operations",
                    .columns = {{"family", "FAMILY"},
                                {"operation", "OPERATION"},
                                {"command", "COMMAND"},
                                {"summary", "WHAT IT DOES"}}};
  for (const Family* family : Families()) {
    for (const Operation& operation : family->operations) {
      const char* const command = *operation.command ? operation.command : "(for programs)";
      const char* const texts[] = {family->name, operation.name, command, operation.summary};
      const auto matches = [&](const char* text) { return ContainsIgnoringCase(text, part); };
      if (!std::any_of(std::begin(texts), std::end(texts), matches)) continue;
      findings.rows.emplace_back(std::begin(texts), std::end(texts));
    }
  }
  return findings;
}

void AddList(Command app) {
  struct Options {
    std::string part;
    Output output;
  };
  auto options = std::make_shared<Options>();
  const Command command = app.Add("list", "Name every operation and its command");
  command.AddOption("TEXT", options->part, "only operations that mention this text");
  AddFormatOptions(command, options->output);
  command.Runs([options] {
    const Findings findings = ListOperations(options->part);
    if (findings.rows.empty()) throw Failure("no operation mentions '" + options->part + "'");
    Print(options->output, findings);
  });
}

}  // namespace

const Family kGeneral = {"general", AddList, {}};

}  // namespace quillon::app
