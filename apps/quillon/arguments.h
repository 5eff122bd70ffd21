// The arguments of an operation as options of its command.
#pragma once

#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "command_line.h"
#include "kit/operations/operation.h"

namespace quillon::app {

// A command of the operation's name, under its family's heading.
Command AddOperation(Command top, const kit::Operation& operation);

class Arguments {
 public:
  // Adds an option for each argument but those that the command takes in another way.
  static std::shared_ptr<Arguments> Add(Command command, const kit::Operation& operation,
                                        const std::set<std::string>& others = {});

  // All values, when the options were parsed; `given` holds those of the others. Refuses usage that
  // the table of operations does not allow.
  kit::Values Read(kit::Json given = kit::Json::object()) const;

 private:
  struct Texts {
    const kit::Argument* argument;
    std::vector<std::string> given = {};
    bool flag = false;
  };

  explicit Arguments(const kit::Operation& operation) : operation_(operation) {}
  void AddOption(Command command, const kit::Argument& argument);

  const kit::Operation& operation_;
  std::deque<Texts> texts_;  // options keep their places
};

}  // namespace quillon::app
