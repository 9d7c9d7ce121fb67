# Shared part of the ARM Linux toolchain files in this folder; include it
# after setting LASERCALI_TARGET_TRIPLE, CMAKE_SYSTEM_PROCESSOR and
# LASERCALI_QEMU (the qemu user emulator of the target).
#
# Compiles with clang for the triple and links with lld, against a sysroot:
# a folder that holds the target's /usr/include and /usr/lib/<triple> (and
# /lib/<triple>), for example one made by scripts/cross.sh. The sysroot comes
# from -DCMAKE_SYSROOT=DIR or, failing that, the environment variable
# LASERCALI_SYSROOT. Libraries, headers and CMake packages are looked up in
# the sysroot only; programs on the build machine.
#
# When the qemu user emulator is installed, CMAKE_CROSSCOMPILING_EMULATOR
# runs target programs under it with the sysroot as their root for library
# look-ups, so ctest runs the tests of a cross build on the build machine.
set(CMAKE_SYSTEM_NAME Linux)

if(NOT CMAKE_SYSROOT AND DEFINED ENV{LASERCALI_SYSROOT})
  set(CMAKE_SYSROOT "$ENV{LASERCALI_SYSROOT}")
endif()
if(NOT CMAKE_SYSROOT)
  message(FATAL_ERROR "No sysroot for ${LASERCALI_TARGET_TRIPLE}: pass -DCMAKE_SYSROOT=DIR or set "
    "LASERCALI_SYSROOT (scripts/cross.sh makes one from Debian's packages)")
endif()
if(NOT EXISTS "${CMAKE_SYSROOT}/usr/lib/${LASERCALI_TARGET_TRIPLE}")
  message(FATAL_ERROR "${CMAKE_SYSROOT} is no sysroot for ${LASERCALI_TARGET_TRIPLE}: "
    "it has no usr/lib/${LASERCALI_TARGET_TRIPLE}")
endif()

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${LASERCALI_TARGET_TRIPLE})
set(CMAKE_CXX_COMPILER_TARGET ${LASERCALI_TARGET_TRIPLE})
set(CMAKE_LIBRARY_ARCHITECTURE ${LASERCALI_TARGET_TRIPLE})
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld")
endforeach()
# The build machine's strip knows only its own architecture; packages are
# stripped with llvm-strip, which knows every one.
find_program(LASERCALI_LLVM_STRIP NAMES llvm-strip llvm-strip-14)
if(LASERCALI_LLVM_STRIP)
  set(CMAKE_STRIP ${LASERCALI_LLVM_STRIP})
endif()

set(CMAKE_FIND_ROOT_PATH "${CMAKE_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# A sysroot made by extracting Debian's packages has no loader cache, and its
# /lib is not merged into /usr/lib, so the target's loader is told both
# library folders. They are named by their path on the build machine: qemu
# looks a path up in the sysroot first for most calls, but not for statx,
# which the 32-bit loader uses to check that a folder exists.
find_program(LASERCALI_QEMU_PROGRAM ${LASERCALI_QEMU})
if(LASERCALI_QEMU_PROGRAM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${LASERCALI_QEMU_PROGRAM} -L ${CMAKE_SYSROOT}
    -E LD_LIBRARY_PATH=${CMAKE_SYSROOT}/lib/${LASERCALI_TARGET_TRIPLE}:${CMAKE_SYSROOT}/usr/lib/${LASERCALI_TARGET_TRIPLE})
endif()
