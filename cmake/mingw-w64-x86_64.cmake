# Cross build of the Qt-free core for 64-bit Windows with Debian's mingw-w64:
# the compilers of the shared-runtime toolchain, with everything linked
# statically so that the programs run under wine without the compiler's DLLs
# beside them.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64-shared.cmake)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Test discovery and ctest run the Windows programs through wine.
find_program(MERVASTO_WINE wine REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${MERVASTO_WINE})
