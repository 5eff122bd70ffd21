// Which instruction-set level this file is compiled for. The build compiles every *_kernels.cpp
// once per level, with QUILLON_LEVEL naming the level and with its compiler flags; nothing else
// asks.
#pragma once

#ifndef QUILLON_LEVEL
#error "kernel files are compiled once per level, with QUILLON_LEVEL defined"
#endif

// sse2, which every processor has that runs the library, is called the floor. avx2 adds BMI2.
// avx512 means the set that came with VBMI: F, CD, BW, DQ, VL, VBMI, VBMI2, VNNI, BITALG,
// VPOPCNTDQ.
#if defined(__AVX512VBMI__)
#define QUILLON_AVX512 1
#define QUILLON_AVX2 1
#define QUILLON_VECTOR_BYTES 64
#elif defined(__AVX2__)
#define QUILLON_AVX512 0
#define QUILLON_AVX2 1
#define QUILLON_VECTOR_BYTES 32
#else
#define QUILLON_AVX512 0
#define QUILLON_AVX2 0
#define QUILLON_VECTOR_BYTES 16
#endif
