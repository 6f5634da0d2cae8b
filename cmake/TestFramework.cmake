# GoogleTest: the installed libraries, or, for a cross build that has none
# for its target, built here from the sources Debian ships.
if(MERVASTO_GTEST_SOURCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(${MERVASTO_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(lib gtest gtest_main gmock gmock_main)
    if(NOT TARGET GTest::${lib})
      add_library(GTest::${lib} ALIAS ${lib})
    endif()
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()
