// How a host learns that a call found too little memory. The exports return nothing, or what they
// return where there is nothing to be found, so the library notes it beside that: where an
// allocation fails, errno becomes kNoMemoryNote. A call never takes a note back.
//
//   ForgetMemoryNote();
//   IxDilation(&image, &image, 5, 5);
//   if (HasMemoryNote()) ...  // the picture may be as it was
//
// errno belongs to the C library and to one thread: a host whose C library is another than this
// library's (on Windows, where it was built with another runtime) reads no note in its own.
#pragma once

#include <cerrno>

namespace quillon {

// Not ENOMEM: malloc may leave that behind although it found memory in a second place.
constexpr int kNoMemoryNote = ENOBUFS;

inline bool HasMemoryNote() { return errno == kNoMemoryNote; }

inline void ForgetMemoryNote() {
  if (HasMemoryNote()) errno = 0;
}

}  // namespace quillon
