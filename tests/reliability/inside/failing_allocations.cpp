#include "reliability/inside/failing_allocations.h"

#include <cstdio>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
int __real_posix_memalign(void** block, size_t alignment, size_t size);
void __real_free(void* block);
FILE* __real_fopen(const char* name, const char* mode);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
int __wrap_posix_memalign(void** block, size_t alignment, size_t size);
void __wrap_free(void* block);
FILE* __wrap_fopen(const char* name, const char* mode);
}

namespace quillon::test {
namespace {

int countdown = 0;  // 0: nothing fails
bool hasFailed = false;
long live = 0;

bool Fails() {
  if (countdown == 0 || --countdown > 0) return false;
  hasFailed = true;
  return true;
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
  countdown = n;
  hasFailed = false;
}

bool StopFailing() {
  countdown = 0;
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
  constexpr int kNoMemory = 12;  // ENOMEM
  if (Fails()) return kNoMemory;
  const int status = __real_posix_memalign(block, alignment, size);
  if (status == 0) Counted(*block);
  return status;
}

void __wrap_free(void* block) {
  quillon::test::live -= block != nullptr;
  __real_free(block);
}

FILE* __wrap_fopen(const char* name, const char* mode) {
  return Fails() ? nullptr : __real_fopen(name, mode);
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
