# Shared by the Linux cross toolchains: Debian's cross compilers for
# QVT_TRIPLE, libraries and headers from the target's side only.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${QVT_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${QVT_TRIPLE}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${QVT_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
