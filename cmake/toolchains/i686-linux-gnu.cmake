# 32-bit x86 Linux. The x86-64 kernel runs the tests natively on Debian's
# 32-bit runtime (libc6-i386, lib32stdc++6), so no emulator is named.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(QVT_TRIPLE i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/linux-cross.cmake)
