#include "cli/host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#endif

namespace quillon::test {
namespace {

std::filesystem::path programFolder;

// Arguments of tests hold no quotes of their own.
std::string Quoted(const std::string& text) { return '"' + text + '"'; }

int RunShell(const std::string& command) {
#ifdef _WIN32
  // The shell takes away the outermost quotes.
  return std::system(Quoted(command).c_str());
#else
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
}

// What a command of the shell printed, and how it ended.
Answer AnswerOf(const std::string& command) {
  const Scratch streams;
  const std::string out = streams / "out", err = streams / "err";
  const int exitCode = RunShell(command + " >" + Quoted(out) + " 2>" + Quoted(err));
  return {exitCode, ReadText(out), ReadText(err)};
}

}  // namespace

Scratch::Scratch() {
  static int made = 0;
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  folder_ = programFolder / ("scratch-" + std::string(test->name()) + "-" + std::to_string(made++));
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void SetProgramFolder(const char* testProgram) {
  programFolder = std::filesystem::absolute(testProgram).parent_path();
}

std::string InProgramFolder(const std::string& name) { return (programFolder / name).string(); }

namespace {

std::string CommandOf(const std::vector<std::string>& arguments) {
#ifdef _WIN32
  const char* const name = "quillon.exe";
#else
  const char* const name = "quillon";
#endif
  std::string command = Quoted((programFolder / name).string());
  for (const std::string& argument : arguments) command += " " + Quoted(argument);
  return command;
}

#ifdef _WIN32
// The interrupt key is told to all programs of a console.
BOOL WINAPI LetPass(DWORD) { return TRUE; }
#endif

}  // namespace

Answer Quillon(const std::vector<std::string>& arguments) { return AnswerOf(CommandOf(arguments)); }

#ifdef _WIN32
// Keys are pressed. The rest the system says itself, by a thread that it starts in the program: so
// does this.
void Tell(HANDLE program, ConsoleEvent event) {
  if (event == ConsoleEvent::kInterrupt) {
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
    return;
  }
  const FARPROC routine = GetProcAddress(GetModuleHandleA("kernel32.dll"), "CtrlRoutine");
  ASSERT_TRUE(routine);
  const HANDLE thread =
      CreateRemoteThread(program, nullptr, 0,
                         reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine)),
                         reinterpret_cast<void*>(static_cast<uintptr_t>(event)), 0, nullptr);
  ASSERT_TRUE(thread);
  CloseHandle(thread);
}

int InterruptQuillon(const std::vector<std::string>& arguments, ConsoleEvent event,
                     const std::function<bool()>& when) {
  FreeConsole();
  EXPECT_TRUE(AllocConsole());
  SetConsoleCtrlHandler(LetPass, TRUE);
  std::string command = CommandOf(arguments);
  STARTUPINFOA start = {};
  start.cb = sizeof start;
  PROCESS_INFORMATION run = {};
  EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                             &start, &run));
  for (int i = 0; i < 2000 && !when(); ++i) Sleep(5);
  Tell(run.hProcess, event);
  EXPECT_EQ(WaitForSingleObject(run.hProcess, 60'000), WAIT_OBJECT_0);
  DWORD exitCode = 0;
  GetExitCodeProcess(run.hProcess, &exitCode);
  CloseHandle(run.hThread);
  CloseHandle(run.hProcess);
  SetConsoleCtrlHandler(LetPass, FALSE);
  return static_cast<int>(exitCode);
}
#else
Answer Shell(const std::string& script) {
  const Scratch folder;
  WriteText(folder / "script",
            "quillon=" + Quoted((programFolder / "quillon").string()) + "\n" + script);
  return AnswerOf("bash " + Quoted(folder / "script"));
}
#endif

std::map<std::string, std::string> FilesOf(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    files[std::filesystem::relative(entry.path(), folder).generic_string()] =
        ReadText(entry.path().string());
  }
  return files;
}

nlohmann::json QuillonJson(std::vector<std::string> arguments) {
  arguments.push_back("--json");
  const Answer answer = Quillon(arguments);
  EXPECT_EQ(answer.exitCode, 0) << answer.err;
  auto json = nlohmann::json::parse(answer.out, nullptr, false);
  EXPECT_FALSE(json.is_discarded()) << answer.out;
  return json;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  std::string text{std::istreambuf_iterator<char>(file), {}};
  std::erase(text, '\r');  // Windows ends the lines of standard output its own way
  return text;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  ASSERT_TRUE(file.flush()) << path;
}

std::vector<std::vector<std::string>> ParseCsv(const std::string& text) {
  std::vector<std::vector<std::string>> records;
  std::vector<std::string> record;
  std::string field;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      const bool twice = quoted && i + 1 < text.size() && text[i + 1] == '"';
      if (twice) field += text[i++];
      if (!twice) quoted = !quoted;
    } else if (!quoted && (c == ',' || c == '\n')) {
      record.push_back(std::move(field));
      field.clear();
      if (c == '\n') records.push_back(std::move(record)), record.clear();
    } else {
      field += c;
    }
  }
  EXPECT_FALSE(quoted) << "a quote stays open";
  EXPECT_TRUE(field.empty() && record.empty()) << "the last line does not end";
  return records;
}

}  // namespace quillon::test
