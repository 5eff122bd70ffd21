#include "standard_streams.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>

#include "interrupt.h"
#include "kit/errors.h"
#include "kit/text/text.h"

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace quillon::app {
namespace {

bool wasCut = false;  // standard output, by an interrupt

[[noreturn]] void Fail(const std::string& reason) {
  throw kit::Failure("cannot write to standard output" + (reason.empty() ? "" : ": " + reason));
}

}  // namespace

void PrepareStandardStreams() {
#ifndef _WIN32
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free number is given: this one. Each is opened the wrong way round.
    if (open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY) < 0) std::_Exit(1);
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
#endif
}

void PrintAtOnce(std::string_view text) {
  if (wasCut) return;
  FlushOutput();
  const std::string problem = WriteUnlessInterrupted(Stream::kOutput, text);
  // The work goes on to an end in order; FlushOutput will tell.
  if (!problem.empty() && IsInterrupted()) wasCut = true;
  if (!problem.empty() && !wasCut) Fail(problem);
}

void Warn(std::string_view message) {
  std::fprintf(stderr, "quillon: %s\n", kit::Visible(message).c_str());
}

void FlushOutput() {
  if (wasCut) Fail("interrupted");
  errno = 0;
  if (!std::cout.flush()) Fail(errno ? std::generic_category().message(errno) : "");
}

}  // namespace quillon::app
