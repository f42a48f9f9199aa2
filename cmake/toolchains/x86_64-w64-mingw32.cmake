# 64-bit Windows (LLP64: long is 32 bits), a DLL under wine64.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(QVT_TRIPLE x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-cross.cmake)
