// The page of a correction: the picture before and after it, side by side.
#pragma once

#include <string>

#include "kit/report/findings.h"
#include "kit/report/report.h"

namespace quillon::kit {

template <class Before, class After>
void WriteBeforeAfter(const std::string& path, const std::string& title, const Before& before,
                      const After& after, const Findings& findings) {
  Report report{.title = title};
  report.pictures.emplace_back("Before", before);
  report.pictures.emplace_back("After", after);
  WriteReport(path, report, findings);
}

}  // namespace quillon::kit
