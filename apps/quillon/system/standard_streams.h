// Standard input, output and error, whatever the caller did with them.
#pragma once

#include <string_view>

namespace quillon::app {

// To be called first. Descriptors 0 to 2 that the caller had closed would go to the first files
// that are opened, which would then receive what is printed: they are taken, so that printing fails
// instead. A reader that goes away, and a file that may grow no further, are errors of writing from
// here on.
void PrepareStandardStreams();

// Prints at once. Throws Failure when that fails; ends early when the program is interrupted.
void PrintAtOnce(std::string_view text);

// A line on standard error.
void Warn(std::string_view message);

// Throws Failure unless all that was printed has arrived.
void FlushOutput();

}  // namespace quillon::app
