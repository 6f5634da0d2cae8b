# Cross build of the Qt-free core for 64-bit Windows with Debian's mingw-w64.
# The -posix compilers give std::thread; everything is linked statically so
# that the programs run under wine without the compiler's DLLs beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_triple}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Test discovery and ctest run the Windows programs through wine.
find_program(MERVASTO_WINE wine REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${MERVASTO_WINE})
