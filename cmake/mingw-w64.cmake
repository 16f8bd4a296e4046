# Cross build for 64-bit Windows with the POSIX-thread flavour of mingw-w64, whose
# runtime has std::mutex and std::thread.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(LINKVANE_MINGW x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${LINKVANE_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${LINKVANE_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${LINKVANE_MINGW}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${LINKVANE_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests run under Wine, each in a prefix that no other running test uses.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/run-wine)
