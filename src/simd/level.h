// Which instruction-set level this file is compiled for, and what a kernel may ask of it. The build
// compiles every *_kernels.cpp once per level, with QUILLON_LEVEL naming the level and with its
// compiler flags; nothing else asks.
#pragma once

#ifndef QUILLON_LEVEL
#error "kernel files are compiled once per level, with QUILLON_LEVEL defined"
#endif

// What a kernel may choose its way by; everything else is an operation of vec.h on every level.
//   QUILLON_VECTOR_BYTES    the width of a register
//   QUILLON_BYTE_SHUFFLES   1: ShuffleBytes is one instruction; 0: it is not there
//   QUILLON_PAIR_SHUFFLES   1: and so is ShuffleBytePairs, from two tables
//   QUILLON_BYTE_TABLES     1: ByteTable (byte_table.h) looks 256 entries up faster than loads do
//   QUILLON_BYTE_WINDOWS    1: ByteWindow (byte_window.h) picks 64 of 192 bytes at once
//   QUILLON_BYTE_DOTS       1: AddDotBytes adds four products of bytes to a lane at once
//   QUILLON_WORD_PRODUCTS   1: DotPairs and MulHigh are one instruction each
//   QUILLON_LANE_MERGES     1: MergeLowBytes is one instruction for each of its vectors
//   QUILLON_BYTE_SIEVES     1: SievedBytes, BitCounts and ChooseBits are one instruction each
#if defined(__x86_64__) || defined(__i386__)
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
#define QUILLON_BYTE_SHUFFLES QUILLON_AVX2
#define QUILLON_PAIR_SHUFFLES QUILLON_AVX512
#define QUILLON_BYTE_TABLES QUILLON_AVX512
#define QUILLON_BYTE_WINDOWS QUILLON_AVX512
#define QUILLON_BYTE_DOTS QUILLON_AVX512
#define QUILLON_WORD_PRODUCTS 1
#define QUILLON_LANE_MERGES QUILLON_AVX512
#define QUILLON_BYTE_SIEVES QUILLON_AVX512
#elif defined(__aarch64__)
// neon, the floor, is what every processor has. dotprod adds the dot products of bytes.
#define QUILLON_VECTOR_BYTES 16
#define QUILLON_BYTE_SHUFFLES 1
#define QUILLON_PAIR_SHUFFLES 1
#define QUILLON_BYTE_TABLES 1
#define QUILLON_BYTE_WINDOWS 0
#if defined(__ARM_FEATURE_DOTPROD)
#define QUILLON_BYTE_DOTS 1
#else
#define QUILLON_BYTE_DOTS 0
#endif
#define QUILLON_WORD_PRODUCTS 0
#define QUILLON_LANE_MERGES 0
#define QUILLON_BYTE_SIEVES 0
#elif defined(__wasm_simd128__)
#define QUILLON_VECTOR_BYTES 16
#define QUILLON_BYTE_SHUFFLES 1
#define QUILLON_PAIR_SHUFFLES 0
#define QUILLON_BYTE_TABLES 0
#define QUILLON_BYTE_WINDOWS 0
#define QUILLON_BYTE_DOTS 0
#define QUILLON_WORD_PRODUCTS 0
#define QUILLON_LANE_MERGES 0
#define QUILLON_BYTE_SIEVES 0
#else
#error "simd/ has no vectors for this processor"
#endif
