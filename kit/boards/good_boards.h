// Which good board a tested one is compared with, by their names.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillon::kit {

class GoodBoards {
 public:
  explicit GoodBoards(const std::vector<std::string>& paths);

  // The good board of the same name; else the one whose name differs in its ending only, as a.png
  // and a.jpg do; else in what follows its last _ or - too, as a_good.png and a_tested.png do. A
  // picture is not its own good board. Throws Failure where there is none, or more than one.
  const std::string& Of(const std::string& tested) const;

 private:
  std::multimap<std::string, std::string> byName_, byStem_, byBeginning_;
};

}  // namespace quillon::kit
