#include "command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>
#include <sstream>
#include <vector>

#include "kit/files/files.h"
#include "kit/operations/argument.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"

namespace quillon::app {
namespace {

bool Reads(const char* text, const char* end, int& value) {
  const auto [at, error] = std::from_chars(text, end, value);
  return error == std::errc{} && at == end;
}
bool Reads(const char* text, const char* end, double& value) {
  return kit::ReadNumber(text, end, value) == end;
}

// Numbers are decimal: 010 is ten. The parser would take it for eight, as programs read it, and so
// gets it without what stands before its digits.
template <class Number>
CLI::Validator Between(const std::string& type, const char* what, Number low, Number high) {
  std::ostringstream range;
  range << type << " in [" << low << " - " << high << "]";
  const std::string expected =
      std::string(what) + " from " + kit::Plain(low) + " to " + kit::Plain(high);
  const auto read = [=](std::string& text) -> std::string {
    const size_t sign = text.starts_with('+') ? 1 : 0;
    const char* const end = text.data() + text.size();
    Number value = {};
    if (!Reads(text.data() + sign, end, value) || !(value >= low && value <= high)) {
      return "'" + text + "' is not " + expected;
    }
    text = std::is_integral_v<Number> ? std::to_string(value) : text.substr(sign);
    return "";
  };
  return {read, range.str()};
}

}  // namespace

Option Option::Required() const { return Option(option_->required()); }
Option Option::Within(int low, int high) const {
  return Option(option_->transform(Between("INT", "a whole number", low, high)));
}
Option Option::Within(double low, double high) const {
  return Option(option_->transform(Between("FLOAT", "a number", low, high)));
}
Option Option::OneOf(const std::vector<std::string>& names) const {
  return Option(option_->check(CLI::IsMember(names)));
}
Option Option::Values(int count) const { return Option(option_->expected(count)); }
Option Option::Values(int least, int most) const { return Option(option_->expected(least, most)); }
Option Option::SeparatedBy(char delimiter) const { return Option(option_->delimiter(delimiter)); }
Option Option::MayBeRepeated() const {
  return Option(option_->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
}
Option Option::ShownAs(const std::string& value) const { return Option(option_->type_name(value)); }
Option Option::WithDefaultShown() const { return Option(option_->capture_default_str()); }
Option Option::DefaultShown(const std::string& text) const {
  return Option(option_->default_str(text));
}
Option Option::Needs(Option other) const { return Option(option_->needs(other.option_)); }
Option Option::Excludes(Option other) const { return Option(option_->excludes(other.option_)); }
bool Option::IsGiven() const { return option_->count() > 0; }

struct Command::Files {
  struct Output {
    CLI::Option* option;
    void (*check)(const std::string& path);
  };
  std::vector<CLI::Option*> inputs;
  std::vector<Output> outputs;

  void Check() const {
    std::vector<std::string> read, written;
    for (const CLI::Option* option : inputs) {
      const std::vector<std::string> names = option->results();
      read.insert(read.end(), names.begin(), names.end());
    }
    for (const auto& [option, check] : outputs) {
      for (const std::string& name : option->results()) {
        if (check) check(name);
        written.push_back(name);
      }
    }
    kit::CheckOutputs(read, written);
  }
};

Command Command::Add(const std::string& name, const std::string& summary) const {
  return Command(app_->add_subcommand(name, summary), files_);
}
void Command::NeedsSubcommand() const { app_->require_subcommand(1); }
Command Command::Under(const std::string& heading) const {
  return Command(app_->group(heading), files_);
}
template <class Value>
Option Command::AddOption(const std::string& name, Value& value, const std::string& summary) const {
  return Option(app_->add_option(name, value, summary));
}
template <class Value>
Option Command::AddFileToRead(const std::string& name, Value& value,
                              const std::string& summary) const {
  files_->inputs.push_back(app_->add_option(name, value, summary));
  return Option(files_->inputs.back());
}
Option Command::AddFileToWrite(const std::string& name, std::string& value,
                               const std::string& summary,
                               void (*check)(const std::string& path)) const {
  files_->outputs.push_back({app_->add_option(name, value, summary), check});
  return Option(files_->outputs.back().option);
}
Option Command::AddFlag(const std::string& name, bool& value, const std::string& summary) const {
  return Option(app_->add_flag(name, value, summary));
}
void Command::Footer(const std::string& text) const { app_->footer(text); }
void Command::Runs(std::function<void()> action) const {
  app_->callback([files = files_, action = std::move(action)] {
    files->Check();
    action();
  });
}

// An option's value: those that commands use.
using Text = const std::string&;
template Option Command::AddOption(Text, int&, Text) const;
template Option Command::AddOption(Text, uint32_t&, Text) const;
template Option Command::AddOption(Text, double&, Text) const;
template Option Command::AddOption(Text, std::string&, Text) const;
template Option Command::AddOption(Text, std::optional<int>&, Text) const;
template Option Command::AddOption(Text, std::vector<int>&, Text) const;
template Option Command::AddOption(Text, std::vector<double>&, Text) const;
template Option Command::AddOption(Text, std::vector<std::string>&, Text) const;
template Option Command::AddFileToRead(Text, std::string&, Text) const;
template Option Command::AddFileToRead(Text, std::vector<std::string>&, Text) const;

namespace {

// The parser would take "[a,b]" for two values; a file may be called so.
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {  // the parser takes them from the end
    const std::string argument = argv[i];
    const bool looksLikeAList = argument.starts_with('[') && argument.ends_with(']');
    arguments.push_back(looksLikeAList ? "./" + argument : argument);
  }
  return arguments;
}

// The command that the arguments named as far as they are known.
const CLI::App* Named(const CLI::App* app) {
  while (!app->get_subcommands().empty()) app = app->get_subcommands().back();
  return app;
}

// What no command or option is called; nothing where that is not what is wrong.
std::string UnknownName(const CLI::App& app) {
  const CLI::App* const named = Named(&app);
  const std::vector<std::string> unknown = app.remaining(true);
  std::string where;
  for (const CLI::App* at = named; at; at = at->get_parent()) where = at->get_name() + " " + where;
  std::vector<std::string> known;
  for (const std::string& word : unknown) {
    if (!word.starts_with('-')) continue;
    const std::string name = word.substr(0, word.find('='));
    for (const CLI::Option* option : named->get_options()) {
      for (const std::string& spelled : option->get_lnames()) known.push_back("--" + spelled);
    }
    return "there is no option '" + name + "'" + kit::DidYouMean(name, known) + "; " + where +
           "--help names them";
  }
  const auto commands = named->get_subcommands([](const CLI::App*) { return true; });
  if (unknown.empty() || commands.empty()) return "";
  for (const CLI::App* command : commands) known.push_back(command->get_name());
  return "there is no command '" + unknown[0] + "'" + kit::DidYouMean(unknown[0], known) + "; " +
         where + "--help names them";
}

// The parser shows the type of an option as VALUE:INT in [0 - 255] or VALUE:{red,green}.
OptionText DescribeOption(const CLI::Option& option) {
  OptionText text{.name = option.get_name(),
                  .value = {},
                  .limits = {},
                  .standard = option.get_default_str(),
                  .summary = option.get_description(),
                  .choices = {},
                  .isByPlace = option.get_positional(),
                  .isRequired = option.get_required()};
  if (option.get_type_size() == 0) return text;  // a flag
  const std::string type = option.get_type_name();
  const size_t colon = type.find(':');
  text.value = type.substr(0, colon);
  if (const size_t at = type.find("in ["); at != std::string::npos) {
    text.limits = type.substr(at + 4, type.find(']', at) - at - 4);
    if (const size_t dash = text.limits.find(" - "); dash != std::string::npos) {
      text.limits.replace(dash, 3, " to ");
    }
  }
  if (const size_t at = type.find(":{"); at != std::string::npos) {
    std::istringstream names(type.substr(at + 2, type.find('}', at) - at - 2));
    for (std::string name; std::getline(names, name, ',');) text.choices.push_back(name);
  }
  return text;
}

CommandText DescribeApp(const CLI::App& app) {
  CommandText text{.name = app.get_name(),
                   .heading = app.get_group(),
                   .summary = app.get_description(),
                   .footer = app.get_footer(),
                   .options = {},
                   .commands = {}};
  for (const CLI::Option* option : app.get_options()) {
    if (option != app.get_help_ptr()) text.options.push_back(DescribeOption(*option));
  }
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    text.commands.push_back(DescribeApp(*command));
  }
  return text;
}

}  // namespace

CommandText Command::Describe() const { return DescribeApp(*app_); }

std::string CommandText::Usage() const {
  std::string usage = name;
  for (const bool byPlace : {true, false}) {
    for (const OptionText& option : options) {
      if (option.isByPlace != byPlace || !option.isRequired) continue;
      usage += " " + option.name;
      if (!byPlace) usage += " " + option.value;
    }
  }
  return usage;
}

int RunCommandLine(int argc, char** argv, const std::string& summary,
                   void (*addCommands)(Command top)) {
  constexpr int kUsage = 2;
  CLI::App app(summary, "quillon");
  app.allow_windows_style_options(false);  // a path may begin with a slash
  app.set_version_flag("--version", QUILLON_VERSION);
  app.require_subcommand(1);
  Command::Files files;
  addCommands(Command(&app, &files));
  if (argc <= 1) {
    std::cout << app.help();
    return kUsage;
  }
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    std::ostringstream said;
    const int code = app.exit(error, std::cout, said);
    if (code == 0) return 0;
    const std::string unknown = UnknownName(app);
    const std::string message = unknown.empty() ? said.str() : "quillon: " + unknown + '\n';
    std::fputs(kit::Visible(message).c_str(), stderr);
    return kUsage;
  }
  return 0;
}

void RefuseUsage(const std::string& option, const std::string& problem) {
  throw CLI::ValidationError(option, problem);
}

}  // namespace quillon::app
