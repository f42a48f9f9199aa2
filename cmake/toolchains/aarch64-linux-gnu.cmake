# 64-bit Arm Linux under qemu-user, on the multiarch runtime
# (libc6:arm64, libstdc++6:arm64) that also brings iconv's modules.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(QVT_TRIPLE aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
