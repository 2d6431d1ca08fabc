# Shared part of the Windows cross toolchains: Debian's MinGW-w64 compilers for the target
# triple that the including file sets in VELMORA_MINGW_TRIPLE.
set(CMAKE_SYSTEM_NAME Windows)

# The *-posix compilers: the win32 thread model has no std::thread or std::mutex in this GCC.
set(CMAKE_C_COMPILER ${VELMORA_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VELMORA_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VELMORA_MINGW_TRIPLE}-windres)
# -O2 rather than -O3: at -O3 this GCC reports false -Wrestrict overlaps inside std::string
# concatenation, and the Windows presets treat warnings as errors.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags for Release builds")

set(CMAKE_FIND_ROOT_PATH /usr/${VELMORA_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest runs the test programs through Wine when it is there; without it they still build.
# Debian keeps its loaders outside PATH, under lib/wine.
find_program(VELMORA_WINE_LOADER NAMES ${VELMORA_WINE_NAMES} HINTS /usr/lib/wine NO_CACHE)
if(VELMORA_WINE_LOADER)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VELMORA_WINE_LOADER})
endif()
