#include "before_after.h"

#include "report.h"

namespace quillon::app {

void WriteBeforeAfter(const std::string& path, const std::string& title, const GreyImage& before,
                      const GreyImage& after, const Findings& findings) {
  Report report{.title = title};
  report.pictures.emplace_back("Before", before);
  report.pictures.emplace_back("After", after);
  WriteReport(path, report, findings);
}

}  // namespace quillon::app
