# The flags of everything we compile. quillon_flags(TARGET) applies them.
set(QUILLON_SANITIZE "" CACHE STRING "Sanitizers to build with, as in -fsanitize=")

set(QUILLON_OPTIMISE "" CACHE STRING
    "One optimisation for all of the library, as in -O0; empty: what is best for each part")

function(quillon_flags target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Werror
    # A fused or reordered operation gives other last bits.
    -ffp-contract=off
    # The image object has four virtual operations and no virtual destructor: that is its contract.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-delete-non-abstract-non-virtual-dtor>)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT EMSCRIPTEN)
    target_compile_options(${target} PRIVATE
      -msse2 -mfpmath=sse  # no result may pass through the wider floating-point stack
      -mstackrealign)      # hosts align the stack to 4 bytes only
  endif()
  if(WIN32)
    target_compile_options(${target} PRIVATE
      -Wa,-muse-unaligned-vector-move)  # this compiler aligns spilled vectors too little
    target_link_options(${target} PRIVATE -static)
  endif()
  if(EMSCRIPTEN AND NOT quillon_is_kernel)
    target_compile_options(${target} PRIVATE
      -fno-unroll-loops)  # outside kernels, longer loops are only more to load
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL Linux AND NOT QUILLON_SANITIZE AND NOT quillon_is_kernel)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    if(NOT QUILLON_OPTIMISE)  # the checked calls are made by the optimiser
      target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
    # The tables of addresses are read-only when the program runs.
    target_link_options(${target} PRIVATE LINKER:-z,relro LINKER:-z,now)
  endif()
  if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 8)
    target_link_options(${target} PRIVATE LINKER:--dynamicbase LINKER:--high-entropy-va)
  endif()
  if(QUILLON_SANITIZE)
    target_compile_definitions(${target} PRIVATE QUILLON_SANITIZED)
    target_compile_options(${target} PRIVATE
      # The library is built without type information, by which vptr would know its objects.
      -fsanitize=${QUILLON_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer -g1
      # The instrumented code confuses this warning.
      $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(${target} PRIVATE -fsanitize=${QUILLON_SANITIZE})
  endif()
endfunction()

# Headers that most files of a target begin with, compiled once.
function(quillon_precompile target)
  target_precompile_headers(${target} PRIVATE ${ARGN})
  # So that ccache can keep what is compiled behind them.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endfunction()

# What the library adds: nothing that can throw, nothing visible that is not asked for.
function(quillon_library_flags target)
  quillon_flags(${target})
  target_compile_definitions(${target} PRIVATE QUILLON_BUILDING)
  target_compile_options(${target} PRIVATE
    -fno-exceptions -fno-rtti -fvisibility=hidden -fvisibility-inlines-hidden)
endfunction()

# Leaves in a list of files those of the system that is built for: of *_windows.cpp, *_posix.cpp and
# *_wasm.cpp only its own. WebAssembly has the calls of posix too: there X_wasm.cpp goes before X_posix.cpp.
function(quillon_of_this_system list)
  set(files ${${list}})
  if(WIN32)
    list(FILTER files EXCLUDE REGEX "_posix\\.cpp$")
  else()
    list(FILTER files EXCLUDE REGEX "_windows\\.cpp$")
  endif()
  set(replaced ${files})
  list(FILTER replaced INCLUDE REGEX "_wasm\\.cpp$")
  if(EMSCRIPTEN)
    list(TRANSFORM replaced REPLACE "_wasm\\.cpp$" "_posix.cpp")
  endif()
  if(replaced)
    list(REMOVE_ITEM files ${replaced})
  endif()
  set(${list} ${files} PARENT_SCOPE)
endfunction()
