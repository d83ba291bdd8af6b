# Compiler settings that every target of the project shares.
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_package(PkgConfig REQUIRED)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Everything compiled here: warnings are errors, floating point is never contracted.
add_library(kel_options INTERFACE)
target_compile_options(kel_options INTERFACE
  -Wall -Wextra -Werror -Wshadow -Wpointer-arith -Wcast-qual -Wformat=2 -Wundef
  -ffp-contract=off
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>  # vectorisation is asked for, not promised
  $<$<CXX_COMPILER_ID:Clang>:-Wno-thread-safety-attributes>)  # the locks are plain pthread_mutex_t
target_compile_definitions(kel_options INTERFACE _GNU_SOURCE EGL_NO_PLATFORM_SPECIFIC_TYPES)
target_link_libraries(kel_options INTERFACE Threads::Threads)
if(KEL_SANITIZE)
  target_compile_options(kel_options INTERFACE
    -fsanitize=${KEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)  # instrumented loops are not vectorised
  target_link_options(kel_options INTERFACE -fsanitize=${KEL_SANITIZE})
endif()

# The library itself: no exceptions, no RTTI, nothing of the C++ run-time library.
add_library(kel_library_options INTERFACE)
target_link_libraries(kel_library_options INTERFACE kel_options)
target_compile_options(kel_library_options INTERFACE
  -fvisibility=hidden
  -fno-plt  # a tenth of the time of a lock-bound call
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility-inlines-hidden>)

# libkel is linked by the C driver; nothing may sneak the C++ run-time library in.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
