// Styles and scripts of the pages: the files of these names in this folder.
#pragma once

namespace quillon::kit {

extern const char kPageStyle[], kReportStyle[], kIndexStyle[];
extern const char kCsvScript[], kViewerScript[], kTableScript[], kReportScript[], kIndexScript[];

}  // namespace quillon::kit
