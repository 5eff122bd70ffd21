// How a family names its kernels: a struct of row functions, and one constant of it per level.
#pragma once

// Declares the three constants that compiling X_kernels.cpp once per level defines.
#define QUILLON_KERNELS(Type, name) \
  namespace sse2 {                  \
  extern const Type name;           \
  }                                 \
  namespace avx2 {                  \
  extern const Type name;           \
  }                                 \
  namespace avx512 {                \
  extern const Type name;           \
  }
