# Cross build for 32-bit ARM Linux (ARMv7-A, hard float); tests run under qemu-user.
# ARM_SYSROOT, or the environment variable of that name, is the folder that scripts/make-arm-sysroot.sh fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(arm_sysroot_default "$ENV{ARM_SYSROOT}")
if(NOT arm_sysroot_default)
  cmake_path(SET arm_sysroot_default NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot")
endif()
set(ARM_SYSROOT "${arm_sysroot_default}" CACHE PATH "Unpacked armhf packages")
option(KEL_ARM_NEON "Compile for NEON, with the loops vectorised" OFF)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARM_SYSROOT KEL_ARM_NEON)
if(NOT EXISTS "${ARM_SYSROOT}/usr/include")
  message(FATAL_ERROR "No ARM sysroot in ${ARM_SYSROOT}: run scripts/make-arm-sysroot.sh")
endif()

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_SYSROOT "${ARM_SYSROOT}")

if(KEL_ARM_NEON)
  set(arm_flags "-march=armv7-a -mfloat-abi=hard -mfpu=neon")
  foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_RELWITHDEBINFO "-O3 -g -DNDEBUG" CACHE STRING "")
  endforeach()
else()
  set(arm_flags "-march=armv7-a -mfloat-abi=hard -mfpu=vfpv3-d16")
endif()
set(CMAKE_C_FLAGS_INIT "${arm_flags}")
set(CMAKE_CXX_FLAGS_INIT "${arm_flags} -Wno-psabi") # it only notes that gcc 7 changed the ABI
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf -Wl,-rpath-link,${ARM_SYSROOT}/lib/arm-linux-gnueabihf")
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ARM_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ARM_SYSROOT}/usr/share/pkgconfig")

set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm;-L;${ARM_SYSROOT}")
