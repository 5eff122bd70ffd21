// Commands and their arguments. The parser's headers take seconds to compile: command_line.cpp
// alone includes them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace quillon::app {

// A command as documents show it.
struct OptionText {
  std::string name;      // "--above"; "IN" for an argument by its place
  std::string value;     // "INT"; empty for a flag
  std::string limits;    // "0 to 255"
  std::string standard;  // the value where none is given
  std::string summary;
  std::vector<std::string> choices;
  bool isByPlace, isRequired;
};

struct CommandText {
  std::string name, heading, summary, footer;
  std::vector<OptionText> options;
  std::vector<CommandText> commands;

  // "dilation IN OUT --horizontal INT --vertical INT": all that is required.
  std::string Usage() const;
};

// A handle to one argument or option of a command; what is said of it goes on and on.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option Required() const;
  Option Within(int low, int high) const;  // both included
  Option Within(double low, double high) const;
  Option OneOf(const std::vector<std::string>& names) const;
  Option Values(int count) const;
  Option Values(int least, int most) const;
  Option SeparatedBy(char delimiter) const;
  Option MayBeRepeated() const;
  Option ShownAs(const std::string& value) const;  // in the help: "LOW HIGH"
  Option WithDefaultShown() const;
  Option DefaultShown(const std::string& text) const;
  Option Needs(Option other) const;
  Option Excludes(Option other) const;

  bool IsGiven() const;

 private:
  CLI::Option* option_;
};

// A handle to a command, to be filled with arguments and with what it does.
class Command {
 public:
  struct Files;  // those that options name
  Command(CLI::App* app, Files* files) : app_(app), files_(files) {}

  Command Add(const std::string& name, const std::string& summary) const;
  void NeedsSubcommand() const;
  Command Under(const std::string& heading) const;  // in the help
  // Numbers and texts, optional ones, and lists of them.
  template <class Value>
  Option AddOption(const std::string& name, Value& value, const std::string& summary) const;
  // A file to be read, or to be written. Before a command begins, those to be written are tested:
  // that they can be, that they are none of those to be read, and what `check` tests, which throws
  // Failure.
  template <class Value>
  Option AddFileToRead(const std::string& name, Value& value, const std::string& summary) const;
  Option AddFileToWrite(const std::string& name, std::string& value, const std::string& summary,
                        void (*check)(const std::string& path) = nullptr) const;
  Option AddFlag(const std::string& name, bool& value, const std::string& summary) const;
  void Footer(const std::string& text) const;
  void Runs(std::function<void()> action) const;
  // What was added to it so far, without --help.
  CommandText Describe() const;

 private:
  CLI::App* app_;
  Files* files_;
};

// Adds the commands and runs the one that the arguments name. Returns the exit code: 0, or 2 after
// wrong usage, which was explained on standard error.
int RunCommandLine(int argc, char** argv, const std::string& summary,
                   void (*addCommands)(Command top));

// Wrong usage that no check of one option sees.
[[noreturn]] void RefuseUsage(const std::string& option, const std::string& problem);

}  // namespace quillon::app
