#include "command_line.h"

#include <CLI/CLI.hpp>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <vector>

namespace quillon::app {

Option Option::Required() const { return Option(option_->required()); }
Option Option::Within(int low, int high) const {
  return Option(option_->check(CLI::Range(low, high)));
}
Option Option::Within(double low, double high) const {
  return Option(option_->check(CLI::Range(low, high)));
}
Option Option::Positive() const {
  return Option(option_->check(CLI::Validator(
      [](const std::string& text) {
        double value = 0;
        return CLI::detail::lexical_cast(text, value) && value > 0
                   ? ""
                   : "Value " + text + " is not greater than 0";
      },
      "POSITIVE")));
}
Option Option::NotNegative() const { return Within(0, INT_MAX); }
Option Option::Finite() const { return Option(option_->check(CLI::Range(-1e9, 1e9, "NUMBER"))); }
Option Option::Checked(std::string (*check)(const std::string&)) const {
  return Option(option_->check(check));
}
Option Option::Named(const std::map<std::string, int>& values) const {
  return Option(option_->transform(CLI::CheckedTransformer(values)));
}
Option Option::Values(int count) const { return Option(option_->expected(count)); }
Option Option::Values(int least, int most) const { return Option(option_->expected(least, most)); }
Option Option::SeparatedBy(char delimiter) const { return Option(option_->delimiter(delimiter)); }
Option Option::MayBeRepeated() const {
  return Option(option_->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
}
Option Option::ShownAs(const std::string& value) const { return Option(option_->type_name(value)); }
Option Option::WithDefaultShown() const { return Option(option_->capture_default_str()); }
Option Option::Needs(Option other) const { return Option(option_->needs(other.option_)); }
Option Option::Excludes(Option other) const { return Option(option_->excludes(other.option_)); }
bool Option::IsGiven() const { return option_->count() > 0; }

Command Command::Add(const std::string& name, const std::string& summary) const {
  return Command(app_->add_subcommand(name, summary));
}
void Command::NeedsSubcommand() const { app_->require_subcommand(1); }
Command Command::AddChoice(const std::string& name) const {
  return Command(app_->add_option_group(name)->require_option(1));
}
template <class Value>
Option Command::AddOption(const std::string& name, Value& value, const std::string& summary) const {
  return Option(app_->add_option(name, value, summary));
}
Option Command::AddFlag(const std::string& name, bool& value, const std::string& summary) const {
  return Option(app_->add_flag(name, value, summary));
}
void Command::Footer(const std::string& text) const { app_->footer(text); }
void Command::Runs(std::function<void()> action) const { app_->callback(std::move(action)); }

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

int RunCommandLine(int argc, char** argv, const std::string& summary,
                   void (*addCommands)(Command top)) {
  constexpr int kUsage = 2;
  CLI::App app(summary, "quillon");
  app.set_version_flag("--version", QUILLON_VERSION);
  app.require_subcommand(1);
  addCommands(Command(&app));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.get_subcommands().empty() && app.remaining_size() > 0) {
      std::fprintf(stderr, "quillon: there is no command or option '%s'; --help names them\n",
                   app.remaining()[0].c_str());
      return kUsage;
    }
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  return 0;
}

void RefuseUsage(const std::string& option, const std::string& problem) {
  throw CLI::ValidationError(option, problem);
}

}  // namespace quillon::app
