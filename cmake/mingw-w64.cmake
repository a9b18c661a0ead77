# Cross build for 64-bit Windows with MinGW-w64. The posix thread model is needed: std::thread, std::mutex.
# What is built here runs on the build machine under Wine, through the wrapper beside this file.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(camclock_triplet x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${camclock_triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${camclock_triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${camclock_triplet}-windres)

# Programs come from the build machine, everything else from the cross compiler's own tree.
set(CMAKE_FIND_ROOT_PATH /usr/${camclock_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# An installed camclock lies where CMAKE_PREFIX_PATH says, outside that tree.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# One Wine prefix a build tree. A prefix takes 700 MB, so a project that lends another's names it.
if(NOT CAMCLOCK_WINE_PREFIX)
  set(CAMCLOCK_WINE_PREFIX "${CMAKE_BINARY_DIR}/wine-prefix")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run" "${CAMCLOCK_WINE_PREFIX}")
