# 64-bit big-endian Linux under qemu-user, on the multiarch runtime
# (libc6:s390x, libstdc++6:s390x) that also brings iconv's modules.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(QVT_TRIPLE s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
# qemu 7.2 misreads three-byte UTF-8 in the convert-Unicode instructions
# with the ETF3 enhancement, which glibc's iconv uses when it is offered.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -cpu max,etf3eh=off)
