# Shared by the Windows toolchains: Debian's mingw-w64 compilers for
# QVT_TRIPLE in their POSIX-thread flavour (std::mutex), the tests under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${QVT_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QVT_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${QVT_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${QVT_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The plug-in carries its C++ runtime and winpthread inside, as a host
# loads it with no MinGW libraries beside it; the tests do the same.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
