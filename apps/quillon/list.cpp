// quillon list: every exported function of the library and the command that reaches it, and the
// commands of operations that call none.
#include <algorithm>
#include <cctype>
#include <map>
#include <memory>

#include "commands.h"
#include "kit/operations/exports.h"
#include "options.h"

namespace quillon::app {
namespace {

bool ContainsIgnoringCase(std::string_view text, std::string_view part) {
  const auto same = [](unsigned char a, unsigned char b) {
    return std::tolower(a) == std::tolower(b);
  };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

Findings ListExports(const CommandText& all, std::string_view part) {
  std::map<std::string, std::string> usages;
  for (const CommandText& command : all.commands) usages[command.name] = command.Usage();
  Findings findings{.key = "operations",
                    .columns = {{"family", "family"},
                                {"operation", "operation"},
                                {"command", "command"},
                                {"summary", "what it does"}}};
  for (const ListedExport& row : Exports()) {
    const std::string command = *row.command ? usages.at(row.command) : "(for programs)";
    const std::string texts[] = {row.family, row.name, command, row.summary};
    const auto matches = [&](const std::string& text) { return ContainsIgnoringCase(text, part); };
    if (!std::any_of(std::begin(texts), std::end(texts), matches)) continue;
    findings.rows.emplace_back(std::begin(texts), std::end(texts));
  }
  return findings;
}

}  // namespace

void AddList(Command top) {
  struct Options {
    std::string part;
    Output output;
  };
  auto options = std::make_shared<Options>();
  const Command command =
      top.Add("list", "Name every function of the library and the command that reaches it")
          .Under("general");
  command.AddOption("TEXT", options->part, "only functions that mention this text");
  AddFormatOptions(command, options->output);
  command.Runs([options, top] {
    const Findings findings = ListExports(top.Describe(), options->part);
    if (findings.rows.empty()) throw Failure("no operation mentions '" + options->part + "'");
    Print(options->output, findings);
  });
}

}  // namespace quillon::app
