// The arguments of an operation as those of its command: pictures and files by their places, all
// others as options.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "command_line.h"
#include "kit/images/image_files.h"
#include "kit/operations/operation.h"

namespace quillon::app {

// A command of the operation's name, under its family's heading.
Command AddOperation(Command top, const kit::Operation& operation);

// "min_score" is the option --min-score.
std::string OptionName(std::string argument);

class Arguments {
 public:
  explicit Arguments(const kit::Operation& operation) : operation_(operation) {}

  // The files that commands take by their places, with `more` said of them, and the others as
  // options.
  void AddByPlace(Command command, const std::string& more = "");
  void AddOptions(Command command);

  // All values, when the options were parsed. Refuses usage that the table of operations does not
  // allow.
  kit::Values Read() const;

 private:
  struct Texts {
    const kit::Argument* argument;
    std::string byPlace = {};
    std::vector<std::string> given = {};
    bool flag = false;
  };

  void AddOption(Command command, const kit::Argument& argument);

  const kit::Operation& operation_;
  std::deque<Texts> texts_;  // options keep their places
};

// A picture that an operation works on.
struct Source {
  GreyImage grey;
  ColourImage colour;

  // In grey, and in colour too where the file has it or the operation wants it.
  void Read(const std::string& path, kit::Kind kind, const kit::Reading& reading);
  kit::PictureView View() const { return {&grey, &colour}; }
};

}  // namespace quillon::app
