# 32-bit Arm Linux, hard-float (Debian's armhf: ARMv7, VFPv3-D16, Thumb-2),
# under qemu-user on the multiarch runtime (libc6:armhf, libstdc++6:armhf).
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(QVT_TRIPLE arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
# g++ notes, on every std::pair of 64-bit members passed by value, that
# GCC 7.1 changed how Arm passes it: nothing here meets code of GCC 6.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
