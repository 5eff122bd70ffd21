// The exported functions of the library with what reaches each, and the operations without any.
#pragma once

#include <vector>

namespace quillon::kit {

struct ListedExport {
  const char* family;
  const char* name;     // "IxSobel"; empty: the operation calls none
  const char* command;  // the operation or other command that calls it; empty: programs only
  const char* summary;
};

// Family by family: the exports of the table of operations, and the others.
const std::vector<ListedExport>& Exports();

}  // namespace quillon::kit
