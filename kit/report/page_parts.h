// Style and script of the report page, from page.css and page.js, and of the index of a run.
#pragma once

namespace quillon::kit {

extern const char kPageStyle[];
extern const char kPageScript[];
extern const char kIndexStyle[];
extern const char kIndexScript[];

}  // namespace quillon::kit
