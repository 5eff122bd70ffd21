// As much of the C library as image.h needs, for a compiler that has no headers of its own here.
#pragma once
#include <stddef.h>
extern "C" {
void* __cdecl malloc(size_t size);
void __cdecl free(void* block);
}
