# 64-bit Windows (x86_64) with Debian's MinGW-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(VELMORA_MINGW_TRIPLE x86_64-w64-mingw32)
set(VELMORA_WINE_NAMES wine64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
