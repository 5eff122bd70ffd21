# The instruction-set levels: each kernel file is compiled once per level. Only these files get level
# flags; scripts/check-kernels holds that none of their code can be called by a lower level.
set(QUILLON_LEVELS sse2 avx2 avx512)
set(quillon_flags_sse2 -msse2)
set(quillon_flags_avx2 -mavx2 -mbmi -mbmi2 -mpopcnt)
set(quillon_flags_avx512 ${quillon_flags_avx2}
    -mavx512f -mavx512cd -mavx512bw -mavx512dq -mavx512vl -mavx512vbmi -mavx512vbmi2 -mavx512vnni
    -mavx512bitalg -mavx512vpopcntdq -mprefer-vector-width=512)

# Object libraries <name>_<level> of the given sources.
function(quillon_add_kernels name)
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
      ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  endforeach()
endfunction()
