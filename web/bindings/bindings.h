// What the files of the bindings share. JavaScript calls plain functions: numbers and addresses in,
// numbers out; what is more than that comes as bytes, most often JSON.
#pragma once

#include <emscripten/emscripten.h>

#include <string>
#include <vector>

#include "kit/operations/operation.h"

// A function that JavaScript calls.
#define QUILLON_WEB extern "C" EMSCRIPTEN_KEEPALIVE

namespace quillon::web {

// Bytes that JavaScript copies before it calls again.
struct Reply {
  size_t size;
  const void* bytes;
  int hasFailed;  // the bytes are a message
};
const Reply* Send(std::vector<unsigned char> bytes);
const Reply* Send(const kit::Json& json);

// The message of the exception that is being handled.
const Reply* SendFailure();

template <class Work>
const Reply* Answer(Work work) {
  try {
    return Send(work());
  } catch (...) {
    return SendFailure();
  }
}

}  // namespace quillon::web
