# 32-bit Windows (i686), the platform the filter is made for, with Debian's MinGW-w64 compilers.
set(CMAKE_SYSTEM_PROCESSOR x86)
set(VELMORA_MINGW_TRIPLE i686-w64-mingw32)
# Only the 32-bit loader runs these; the 64-bit-only Wine cannot.
set(VELMORA_WINE_NAMES wine)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
