// Every allocation of the program, the library's included, goes through here: counted, and made to
// fail when a test says so. The program is linked with --wrap for the C functions.
#pragma once

namespace quillon::test {

// From now on the n-th allocation fails, counted from 1. Opening a file counts as one.
void FailAllocation(int n);
// The same, and so do all after it.
void FailAllocationsFrom(int n);
// No allocation fails any more. Tells whether one did.
bool StopFailing();

// Blocks that are allocated now.
long LiveBlocks();

}  // namespace quillon::test
