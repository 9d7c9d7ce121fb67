# 64-bit ARM Linux (Debian arm64), clang + lld against a sysroot.
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
#         -DCMAKE_SYSROOT=/path/to/arm64-sysroot
#
# See linux-cross.cmake for what the sysroot must hold and how tests run.
set(LASERCALI_TARGET_TRIPLE aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(LASERCALI_QEMU qemu-aarch64)
set(LASERCALI_DEB_ARCH arm64)  # Debian architecture of packages made by CPack
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
