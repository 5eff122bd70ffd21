// The exported functions of the library, and what reaches each.
#pragma once

#include <vector>

namespace quillon::kit {

struct ListedExport {
  const char* family;
  const char* name;     // "IxSobel"
  const char* command;  // the operation or other command that calls it; empty: programs only
  const char* summary;
};

// Every one, family by family: those of the table of operations, and the others.
const std::vector<ListedExport>& Exports();

}  // namespace quillon::kit
