// What opening the workbench asks of the operating system: browser_posix.cpp, browser_windows.cpp,
// browser_wasm.cpp.
#pragma once

#include <string>

namespace quillon::app {

// The path of the program that runs; empty where the system does not tell.
std::string ProgramPath();

// Gives the file to the program that the user has chosen for pages. Returns why that failed;
// nothing when it was done.
std::string OpenInBrowser(const std::string& path);

}  // namespace quillon::app
