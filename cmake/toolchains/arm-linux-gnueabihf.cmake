# 32-bit ARM Linux with the hard-float ABI (Debian armhf), clang + lld
# against a sysroot. Code is generated for ARMv7-A, Thumb-2, with NEON (and
# so VFPv3 with 32 double registers): the robots' cores have NEON, and the
# stripe cut uses it. That is more than Debian's armhf baseline (VFPv3-D16,
# no NEON); the calling convention is the same.
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake \
#         -DCMAKE_SYSROOT=/path/to/armhf-sysroot
#
# See linux-cross.cmake for what the sysroot must hold and how tests run.
set(LASERCALI_TARGET_TRIPLE arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(LASERCALI_QEMU qemu-arm)
set(LASERCALI_DEB_ARCH armhf)  # Debian architecture of packages made by CPack
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mthumb -mfpu=neon -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mthumb -mfpu=neon -mfloat-abi=hard")
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
