// What reading and writing files asks of the operating system: system_posix.cpp,
// system_windows.cpp.
#pragma once

#include <cstdio>
#include <string>

namespace quillon::kit::system {

// Opens a regular file and nothing else. Null where that failed, with the reason in `problem`.
std::FILE* OpenRegular(const std::string& path, std::string& problem);

// Makes a file that was not there. Null where that failed; errno tells why.
std::FILE* CreateNew(const std::string& path);

// From the memory of the system onto the disk.
bool FlushToDisk(std::FILE* file);

// Whether this user may write to the file, or make files in the folder.
bool MayWrite(const std::string& path);

int ProcessId();

// Locks the file, which is made where it is missing; null where another program holds it. `problem`
// tells of any other reason. Unlocking removes the file.
void* LockFile(const std::string& path, std::string& problem);
void UnlockFile(const std::string& path, void* handle);

}  // namespace quillon::kit::system
