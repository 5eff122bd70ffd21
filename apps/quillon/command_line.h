// Commands and their arguments. The parser's headers take seconds to compile: command_line.cpp
// alone includes them.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace quillon::app {

// A handle to one argument or option of a command; what is said of it goes on and on.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option Required() const;
  Option Within(int low, int high) const;  // both included
  Option Within(double low, double high) const;
  Option Positive() const;
  Option NotNegative() const;
  Option Finite() const;  // from -1e9 to 1e9
  // A check returns what is wrong with a text, nothing where nothing is.
  Option Checked(std::string (*check)(const std::string&)) const;
  Option Named(const std::map<std::string, int>& values) const;  // a name, for a number
  Option Values(int count) const;
  Option Values(int least, int most) const;
  Option SeparatedBy(char delimiter) const;
  Option MayBeRepeated() const;
  Option ShownAs(const std::string& value) const;  // in the help: "LOW HIGH"
  Option WithDefaultShown() const;
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
  // The options added to it exclude each other, and one of them is needed.
  Command AddChoice(const std::string& name) const;
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
