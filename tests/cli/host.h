// Running the built command-line host, as a user does.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quillon::test {

// A folder of the running test alone, removed with the object.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  std::string operator/(const std::string& name) const { return (folder_ / name).string(); }

 private:
  std::filesystem::path folder_;
};

struct Answer {
  int exitCode;
  std::string out, err;
};

// The folder of the test program, where the host's program and its library lie.
void SetProgramFolder(const char* testProgram);
std::string InProgramFolder(const std::string& name);

// Runs the host with these arguments.
Answer Quillon(const std::vector<std::string>& arguments);

#ifdef _WIN32
// What ends programs on a console, by the numbers of the system.
enum class ConsoleEvent { kInterrupt = 0, kClose = 2, kLogOff = 5, kShutdown = 6 };

// Runs the host on a console of its own, and tells it of the event as soon as `when` holds. Returns
// the exit code.
int InterruptQuillon(const std::vector<std::string>& arguments, ConsoleEvent event,
                     const std::function<bool()>& when);
#else
// Runs a shell's script, in which "$quillon" is the host.
Answer Shell(const std::string& script);
#endif

// Every file of the folder and its bytes, by its path there.
std::map<std::string, std::string> FilesOf(const std::string& folder);

// The same, for a command that prints JSON; a failure shows what it printed instead.
nlohmann::json QuillonJson(std::vector<std::string> arguments);

std::string ReadText(const std::string& path);
void WriteText(const std::string& path, const std::string& text);

// The records of a CSV text, quotes resolved; the first holds the names.
std::vector<std::vector<std::string>> ParseCsv(const std::string& text);

}  // namespace quillon::test
