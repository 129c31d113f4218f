# Cross-builds for Windows with mingw-w64, posix threads. ORVEL_ARCH is x86_64 or i686 and comes from the preset.
set(CMAKE_SYSTEM_NAME Windows)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVEL_ARCH)
set(CMAKE_SYSTEM_PROCESSOR ${ORVEL_ARCH})
set(triple ${ORVEL_ARCH}-w64-mingw32)

find_program(ORVEL_CXX ${triple}-g++-posix)
find_program(ORVEL_CC ${triple}-gcc-posix)
if(NOT ORVEL_CXX OR NOT ORVEL_CC)
  message(FATAL_ERROR "No posix-thread mingw-w64 compiler for ${ORVEL_ARCH}; run ./cmake/setup.sh, which installs it")
endif()
set(CMAKE_CXX_COMPILER ${ORVEL_CXX})
set(CMAKE_C_COMPILER ${ORVEL_CC})
set(CMAKE_RC_COMPILER ${triple}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Everything that is built and then run, tests included, runs under Wine in the project's own prefix.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine.sh)
