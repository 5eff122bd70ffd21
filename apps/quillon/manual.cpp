// quillon man, quillon completion: the manual page and the completions of shells, from the commands
// and options as the parser knows them.
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include "commands.h"
#include "kit/images/image_files.h"

namespace quillon::app {
namespace {

// ---- the manual page ----------------------------------------------------------------------------

// As the formatter wants it: no line begins with its commands, hyphens can be searched for.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '-')
      escaped += "\\-";
    else if (c == '\\')
      escaped += "\\e";
    else
      escaped += c;
  }
  const bool isCommand = !escaped.empty() && (escaped[0] == '.' || escaped[0] == '\'');
  return (isCommand ? "\\&" : "") + escaped;
}

// " (0 to 255; 3)": what limits an option, and its value where none is given.
std::string InBrackets(const OptionText& option) {
  std::string choices;
  for (const std::string& choice : option.choices)
    choices += (choices.empty() ? "" : ", ") + choice;
  std::string text;
  for (const std::string& part : {option.limits, choices, option.standard}) {
    if (!part.empty()) text += (text.empty() ? "" : "; ") + part;
  }
  return text.empty() ? "" : " (" + text + ")";
}

void PrintOptions(const CommandText& command, std::ostream& out) {
  for (const OptionText& option : command.options) {
    out << ".TP\n.B " << Escaped(option.name);
    if (!option.isByPlace && !option.value.empty())
      out << " \\fI" << Escaped(option.value) << "\\fR";
    out << '\n' << Escaped(option.summary + InBrackets(option)) << '\n';
  }
}

void PrintCommand(const CommandText& command, const std::string& before, std::ostream& out) {
  out << ".SS " << Escaped(before + command.Usage()) << '\n' << Escaped(command.summary) << ".\n";
  PrintOptions(command, out);
  if (!command.footer.empty()) out << ".PP\n" << Escaped(command.footer) << '\n';
  for (const CommandText& below : command.commands) {
    PrintCommand(below, before + command.name + " ", out);
  }
}

// Commands by their headings, in the order of the first of each.
std::vector<std::vector<const CommandText*>> ByHeading(const CommandText& all) {
  std::vector<std::vector<const CommandText*>> groups;
  for (const CommandText& command : all.commands) {
    const auto group = std::find_if(groups.begin(), groups.end(), [&](const auto& known) {
      return known.front()->heading == command.heading;
    });
    if (group == groups.end()) {
      groups.push_back({&command});
    } else {
      group->push_back(&command);
    }
  }
  return groups;
}

void PrintManual(const CommandText& all, std::ostream& out) {
  out << ".TH QUILLON 1 \"\" \"quillon " QUILLON_VERSION
         "\"\n"
         ".SH NAME\nquillon \\- find, measure and judge what the camera sees\n"
         ".SH SYNOPSIS\n.B quillon\n.I COMMAND ARGUMENTS\n"
         ".SH DESCRIPTION\n"
         "Pictures are read from files of these formats: "
      << kit::kReadFormats
      << ". They are written as PNG or BMP files, by the name\\(aqs ending. Commands that work on "
         "grey convert colour.\n"
         ".SH EXIT STATUS\n"
         "0 done, 1 failed, 2 wrong usage; 3 from commands that judge, when not everything "
         "passed.\n";
  for (const auto& group : ByHeading(all)) {
    std::string heading = group.front()->heading;
    std::transform(heading.begin(), heading.end(), heading.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    out << ".SH " << heading << '\n';
    for (const CommandText* command : group) PrintCommand(*command, "", out);
  }
}

// ---- the list in docs/command-line.md -----------------------------------------------------------

std::string InCell(std::string text) {
  for (size_t at = 0; (at = text.find('|', at)) != std::string::npos; at += 2)
    text.insert(at, "\\");
  return text;
}

// Options of many commands, which the page tells of once.
constexpr std::string_view kShared[] = {"--report", "--draw",  "--json",
                                        "--csv",    "--depth", "--max-pixels"};

void PrintRow(const CommandText& command, const std::string& before, std::ostream& out) {
  std::string options;
  for (const OptionText& option : command.options) {
    const bool isShared =
        std::find(std::begin(kShared), std::end(kShared), option.name) != std::end(kShared);
    if (option.isByPlace || isShared) continue;
    options += (options.empty() ? "`" : "<br>`") + option.name;
    options += (option.value.empty() ? "" : " " + option.value) + "` " + option.summary;
    options += InBrackets(option);
  }
  if (command.commands.empty()) {
    out << "| `" << before + command.Usage() << "` | " << InCell(command.summary) << " | "
        << InCell(options) << " |\n";
  }
  for (const CommandText& below : command.commands)
    PrintRow(below, before + command.name + " ", out);
}

void PrintMarkdown(const CommandText& all, std::ostream& out) {
  const char* space = "";
  for (const auto& group : ByHeading(all)) {
    out << space << "### " << group.front()->heading
        << "\n\n| command | what it does | options |\n|---|---|---|\n";
    for (const CommandText* command : group) PrintRow(*command, "", out);
    space = "\n";
  }
}

// ---- completions --------------------------------------------------------------------------------

// A command, or one below it, by the words that name it.
struct Completed {
  std::string words;  // "recipe check"; empty: none yet
  const CommandText* command;
};

std::vector<Completed> AllCommands(const CommandText& all) {
  std::vector<Completed> found = {{"", &all}};
  for (size_t i = 0; i < found.size(); ++i) {
    for (const CommandText& below : found[i].command->commands) {
      found.push_back({found[i].words + (found[i].words.empty() ? "" : " ") + below.name, &below});
    }
  }
  return found;
}

// What can follow: commands and options.
std::string Followers(const CommandText& command) {
  std::string words;
  for (const CommandText& below : command.commands) words += below.name + " ";
  for (const OptionText& option : command.options) {
    if (!option.isByPlace) words += option.name + " ";
  }
  return words + "--help";
}

std::string Choices(const OptionText& option) {
  std::string words;
  for (const std::string& choice : option.choices) words += (words.empty() ? "" : " ") + choice;
  return words;
}

void PrintBash(const CommandText& all, std::ostream& out) {
  out << "# Completions of quillon for bash.\n"
         "_quillon() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local command=${COMP_WORDS[1]} words=\n"
         "  [ \"$COMP_CWORD\" -gt 1 ] || command=\n"
         "  [ \"$COMP_CWORD\" -le 2 ] || [ \"$command\" != recipe ] || command=\"recipe "
         "${COMP_WORDS[2]}\"\n"
         "  case \"$command:$before\" in\n";
  for (const auto& [words, command] : AllCommands(all)) {
    for (const OptionText& option : command->options) {
      if (option.choices.empty()) continue;
      out << "    '" << words << ':' << option.name << "') words='" << Choices(option) << "' ;;\n";
    }
  }
  out << "    *) case \"$command\" in\n";
  for (const auto& [words, command] : AllCommands(all)) {
    out << "      '" << words << "') words='" << Followers(*command) << "' ;;\n";
  }
  out << "    esac ;;\n"
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
         "}\n"
         "complete -o default -F _quillon quillon\n";
}

// A text between apostrophes.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

void PrintZsh(const CommandText& all, std::ostream& out) {
  const auto described = [](std::string name, const std::string& summary) {
    for (size_t at = 0; (at = name.find(':', at)) != std::string::npos; at += 2)
      name.insert(at, "\\");
    return Quoted(name + ":" + summary);
  };
  out << "#compdef quillon\n"
         "# Completions of quillon for zsh.\n"
         "local command=\"${words[2]}\" before=\"${words[CURRENT-1]}\"\n"
         "local -a found\n"
         "(( CURRENT > 2 )) || command=\n"
         "(( CURRENT > 3 )) && [[ $command == recipe ]] && command=\"recipe ${words[3]}\"\n"
         "case \"$command:$before\" in\n";
  for (const auto& [words, command] : AllCommands(all)) {
    for (const OptionText& option : command->options) {
      if (option.choices.empty()) continue;
      out << "  '" << words << ':' << option.name << "') compadd -- " << Choices(option)
          << "; return ;;\n";
    }
  }
  out << "esac\ncase \"$command\" in\n";
  for (const auto& [words, command] : AllCommands(all)) {
    out << "  '" << words << "') found=(";
    for (const CommandText& below : command->commands)
      out << described(below.name, below.summary) << ' ';
    for (const OptionText& option : command->options) {
      if (!option.isByPlace) out << described(option.name, option.summary) << ' ';
    }
    out << "'--help:say what there is') ;;\n";
  }
  out << "esac\n_describe -o quillon found\n[[ -z $command ]] || _files\n";
}

void PrintFish(const CommandText& all, std::ostream& out) {
  out << "# Completions of quillon for fish.\n";
  for (const auto& [words, command] : AllCommands(all)) {
    std::string condition = "__fish_use_subcommand";
    if (!words.empty()) {
      condition = "__fish_seen_subcommand_from " + words.substr(0, words.find(' '));
      if (const size_t space = words.find(' '); space != std::string::npos) {
        condition += "; and __fish_seen_subcommand_from " + words.substr(space + 1);
      }
    }
    const std::string begin = "complete -c quillon -n " + Quoted(condition);
    for (const CommandText& below : command->commands) {
      out << begin << " -f -a " << below.name << " -d " << Quoted(below.summary) << '\n';
    }
    for (const OptionText& option : command->options) {
      if (option.isByPlace) continue;
      out << begin << " -l " << option.name.substr(2) << " -d " << Quoted(option.summary);
      if (!option.value.empty()) out << " -r";
      if (!option.choices.empty()) out << " -f -a " << Quoted(Choices(option));
      out << '\n';
    }
  }
}

}  // namespace

void AddManual(Command top) {
  auto isMarkdown = std::make_shared<bool>(false);
  const Command manual = top.Add("man", "Print the manual page (man -l -)").Under("general");
  manual.AddFlag("--markdown", *isMarkdown,
                 "the list of commands for docs/command-line.md instead");
  manual.Runs([isMarkdown, top] {
    (*isMarkdown ? PrintMarkdown : PrintManual)(top.Describe(), std::cout);
  });

  using Printer = void (*)(const CommandText&, std::ostream&);
  static const std::map<std::string, Printer> printers = {
      {"bash", PrintBash}, {"fish", PrintFish}, {"zsh", PrintZsh}};
  auto shell = std::make_shared<std::string>();
  const Command completion =
      top.Add("completion", "Print what lets bash, fish or zsh complete commands and options")
          .Under("general");
  completion.AddOption("SHELL", *shell, "the shell").Required().OneOf({"bash", "fish", "zsh"});
  completion.Runs([shell, top] { printers.at (*shell)(top.Describe(), std::cout); });
}

}  // namespace quillon::app
