# Kernel files are compiled once per level of the processor (base/simd.hpp), with the loops vectorised; the objects
# of a level are the target kel_kernels_LEVEL.
set(KEL_KERNEL_LEVELS baseline)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  list(APPEND KEL_KERNEL_LEVELS avx2 avx512)
endif()
set(kel_kernel_flags_avx2 -mavx2)
# GCC's own AVX-512 header reads "undefined" registers on purpose and warns of them.
set(kel_kernel_flags_avx512 -mavx512f -mavx512bw -mavx512dq -mavx512vl -mavx512vnni -mavx512vbmi
  -mprefer-vector-width=512
  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
foreach(level IN LISTS KEL_KERNEL_LEVELS)
  add_library(kel_kernels_${level} OBJECT)
  target_include_directories(kel_kernels_${level} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(kel_kernels_${level} PRIVATE KEL_SIMD_LEVEL=${level})
  target_compile_options(kel_kernels_${level} PRIVATE -O3 ${kel_kernel_flags_${level}})
  target_link_libraries(kel_kernels_${level} PRIVATE kel_library_options)
endforeach()

# Adds kernel files of a module to every level.
function(kel_add_kernels)
  foreach(level IN LISTS KEL_KERNEL_LEVELS)
    target_sources(kel_kernels_${level} PRIVATE ${ARGN})
  endforeach()
endfunction()
