#include "reliability/inside/failing_allocations.h"

#include <dlfcn.h>
#include <unwind.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
int __real_posix_memalign(void** block, size_t alignment, size_t size);
void __real_free(void* block);
FILE* __real_fopen(const char* name, const char* mode);
FILE* __real_fdopen(int file, const char* mode);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
int __wrap_posix_memalign(void** block, size_t alignment, size_t size);
void __wrap_free(void* block);
FILE* __wrap_fopen(const char* name, const char* mode);
FILE* __wrap_fdopen(int file, const char* mode);
}

namespace quillon::test {
namespace {

int countdown = 0;  // 0: nothing fails; 1: the next one does
bool hasFailed = false;
bool staysFailed = false;  // all that follow fail too
bool isAsking = false;     // whether this one is to fail
long live = 0;

// Whether a value of the JSON library is being destroyed. Its destructor makes a list of all that
// the value holds, and where there is no memory for that the program ends: nobody above can help
// it.
bool DestroysJson() {
  bool does = false;
  const auto look = [](_Unwind_Context* context, void* found) {
    Dl_info info;
    const auto address = static_cast<uintptr_t>(_Unwind_GetIP(context));
    if (!dladdr(reinterpret_cast<void*>(address), &info) || !info.dli_sname) {
      return _URC_NO_REASON;
    }
    const std::string_view name = info.dli_sname;
    const bool isJson =
        name.find("basic_json") != name.npos &&
        (name.find("destroy") != name.npos || name.ends_with("D2Ev") || name.ends_with("D1Ev"));
    *static_cast<bool*>(found) |= isJson;
    return isJson ? _URC_END_OF_STACK : _URC_NO_REASON;
  };
  _Unwind_Backtrace(look, &does);
  return does;
}

bool Fails() {
  if (countdown > 1) --countdown;
  const bool isTurn = countdown == 1 || (hasFailed && staysFailed);
  if (!isTurn || isAsking) return false;
  isAsking = true;
  const bool fails = !DestroysJson();
  isAsking = false;
  if (fails) {
    countdown = 0;
    hasFailed = true;
  }
  return fails;
}

void* Counted(void* block) {
  live += block != nullptr;
  return block;
}

void* Aligned(size_t size, size_t alignment) {
  void* block = nullptr;
  return __wrap_posix_memalign(&block, alignment, size) == 0 ? block : nullptr;
}

template <class Block>
Block OrThrow(Block block) {
  if (!block) throw std::bad_alloc();
  return block;
}

}  // namespace

void FailAllocation(int n) {
  countdown = n + 1;
  hasFailed = staysFailed = false;
}

void FailAllocationsFrom(int n) {
  FailAllocation(n);
  staysFailed = true;
}

bool StopFailing() {
  countdown = 0;
  staysFailed = false;
  return hasFailed;
}

long LiveBlocks() { return live; }

}  // namespace quillon::test

using quillon::test::Aligned;
using quillon::test::Counted;
using quillon::test::Fails;
using quillon::test::OrThrow;

void* __wrap_malloc(size_t size) { return Fails() ? nullptr : Counted(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) {
  return Fails() ? nullptr : Counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, size_t size) {
  if (Fails()) return nullptr;
  return block ? __real_realloc(block, size) : Counted(__real_malloc(size));
}

int __wrap_posix_memalign(void** block, size_t alignment, size_t size) {
  if (Fails()) return ENOMEM;
  const int status = __real_posix_memalign(block, alignment, size);
  if (status == 0) Counted(*block);
  return status;
}

void __wrap_free(void* block) {
  quillon::test::live -= block != nullptr;
  __real_free(block);
}

FILE* __wrap_fopen(const char* name, const char* mode) {
  if (!Fails()) return __real_fopen(name, mode);
  errno = ENOMEM;
  return nullptr;
}

FILE* __wrap_fdopen(int file, const char* mode) {
  if (!Fails()) return __real_fdopen(file, mode);
  errno = ENOMEM;
  return nullptr;
}

void* operator new(size_t size) { return OrThrow(__wrap_malloc(size)); }
void* operator new[](size_t size) { return OrThrow(__wrap_malloc(size)); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return __wrap_malloc(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return __wrap_malloc(size); }
void* operator new(size_t size, std::align_val_t alignment) {
  return OrThrow(Aligned(size, static_cast<size_t>(alignment)));
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return Aligned(size, static_cast<size_t>(alignment));
}
void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete[](void* block) noexcept { __wrap_free(block); }
void operator delete(void* block, size_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, size_t) noexcept { __wrap_free(block); }
void operator delete(void* block, std::align_val_t) noexcept { __wrap_free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { __wrap_free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { __wrap_free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  __wrap_free(block);
}
