// Style and script of the report page, from page.css and page.js.
#pragma once

namespace quillon::app {

extern const char kPageStyle[];
extern const char kPageScript[];

}  // namespace quillon::app
