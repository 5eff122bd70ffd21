#include <windows.h>

#include <atomic>

#include "interrupt.h"
#include "write_and_wait.h"

namespace quillon::app {
namespace {

std::atomic<bool> isInterrupted = false, isGuarded = false;

BOOL WINAPI OnConsole(DWORD event) {
  if (isInterrupted.exchange(true)) return FALSE;  // the second one ends the program
  // After these the system ends the program as soon as this returns, or some seconds later.
  const bool isLast =
      event == CTRL_CLOSE_EVENT || event == CTRL_LOGOFF_EVENT || event == CTRL_SHUTDOWN_EVENT;
  while (isLast && isGuarded) Sleep(20);
  return TRUE;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  isInterrupted = false;
  isGuarded = true;
  SetConsoleCtrlHandler(OnConsole, TRUE);
}

InterruptGuard::~InterruptGuard() {
  isGuarded = false;
  SetConsoleCtrlHandler(OnConsole, FALSE);
}

bool IsInterrupted() { return isInterrupted; }

std::string WriteUnlessInterrupted(Stream stream, std::string_view text) {
  return WriteAndWait(stream, text);
}

}  // namespace quillon::app
