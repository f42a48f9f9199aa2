# 32-bit Windows, a DLL under wine32 (wine32:i386).
set(CMAKE_SYSTEM_PROCESSOR i686)
set(QVT_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
