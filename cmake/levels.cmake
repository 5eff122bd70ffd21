# The instruction-set levels of the processor that is built for, the floor first: each kernel file is
# compiled once per level. Only these files get level flags; scripts/check-kernels holds that none of
# their code can be called by a lower level. Nothing else lists levels: the sources read the
# generated simd/levels.h, scripts the generated levels.txt.
#
#   quillon_flags_LEVEL      the compiler's flags
#   quillon_features_LEVEL   what a processor must have beyond the level before, by the names of
#                            __builtin_cpu_supports on x86, of HWCAP_NAME on ARM; the floor needs nothing
if(EMSCRIPTEN)
  set(QUILLON_LEVELS simd128)
  set(quillon_flags_simd128 -msimd128)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(QUILLON_LEVELS neon dotprod)
  set(quillon_flags_dotprod -march=armv8.2-a+dotprod)
  set(quillon_features_dotprod ASIMDDP)
else()
  set(QUILLON_LEVELS sse2 avx2 avx512)
  set(quillon_flags_sse2 -msse2)
  set(quillon_flags_avx2 -mavx2 -mbmi -mbmi2 -mpopcnt)
  set(quillon_features_avx2 avx2 bmi bmi2 popcnt)
  set(quillon_features_avx512 avx512f avx512cd avx512bw avx512dq avx512vl avx512vbmi avx512vbmi2
      avx512vnni avx512bitalg avx512vpopcntdq)
  set(quillon_flags_avx512 ${quillon_flags_avx2} -mprefer-vector-width=512)
  foreach(feature IN LISTS quillon_features_avx512)
    list(APPEND quillon_flags_avx512 -m${feature})
  endforeach()
endif()

# simd/levels.h and levels.txt.
set(quillon_generated ${CMAKE_BINARY_DIR}/generated)
set(each_level "")
set(each_feature "")
set(number 0)
foreach(level IN LISTS QUILLON_LEVELS)
  string(APPEND each_level " DO(${level})")
  foreach(feature IN LISTS quillon_features_${level})
    string(APPEND each_feature " DO(${feature}, ${number})")
  endforeach()
  math(EXPR number "${number} + 1")
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/levels.h.in ${quillon_generated}/simd/levels.h @ONLY)
list(JOIN QUILLON_LEVELS " " each_name)
file(WRITE ${CMAKE_BINARY_DIR}/levels.txt "${each_name}\n")

# Object libraries <name>_<level> of the given sources.
function(quillon_add_kernels name)
  set(quillon_is_kernel ON)  # a guard on each stack frame would cost at each row
  set(optimise -O3)
  if(QUILLON_SANITIZE)
    set(optimise -O1)  # instrumented kernels take minutes to optimise
  endif()
  if(QUILLON_OPTIMISE)
    set(optimise ${QUILLON_OPTIMISE})
  endif()
  foreach(level IN LISTS QUILLON_LEVELS)
    set(target ${name}_${level})
    add_library(${target} OBJECT ${ARGN})
    quillon_library_flags(${target})
    target_compile_options(${target} PRIVATE ${optimise} ${quillon_flags_${level}})
    target_compile_definitions(${target} PRIVATE QUILLON_LEVEL=${level})
    target_include_directories(${target} PRIVATE
      ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include ${quillon_generated})
  endforeach()
endfunction()
