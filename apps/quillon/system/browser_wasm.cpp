// A module knows no programs: neither its own file nor a browser.
#include "browser.h"

namespace quillon::app {

std::string ProgramPath() { return {}; }

std::string OpenInBrowser(const std::string&) { return "a module starts no programs"; }

}  // namespace quillon::app
