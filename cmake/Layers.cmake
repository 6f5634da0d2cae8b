# Every folder under src/ is one layer library, mervasto_<name>, that links the
# layers below it. Sources are picked up by glob so that adding a file to a
# layer needs no edit here.
function(mervasto_layer name)
  cmake_parse_arguments(L "" "" "DEPS;EXCLUDE" ${ARGN})
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER _src EXCLUDE REGEX ".*/main_[^/]*\\.cpp$")
  foreach(_x IN LISTS L_EXCLUDE)
    list(REMOVE_ITEM _src ${CMAKE_CURRENT_SOURCE_DIR}/${_x})
  endforeach()
  if(_src)
    add_library(mervasto_${name} STATIC ${_src})
    target_include_directories(mervasto_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(mervasto_${name} PUBLIC ${L_DEPS})
  else()
    add_library(mervasto_${name} INTERFACE)
    target_include_directories(mervasto_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(mervasto_${name} INTERFACE ${L_DEPS})
  endif()
endfunction()

# One test program per layer: tests/<layer>/*.cpp.
function(mervasto_layer_tests name)
  cmake_parse_arguments(L "" "" "DEPS" ${ARGN})
  file(GLOB _src CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(_src)
    add_executable(test_${name} ${_src})
    target_include_directories(test_${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(test_${name} PRIVATE ${L_DEPS} GTest::gtest GTest::gtest_main GTest::gmock)
    target_compile_definitions(test_${name} PRIVATE
      MERVASTO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    # The environment of the tests (offscreen windows) comes from the test preset.
    # Listing the tests of a cross-built program goes through the emulator
    # (wine), whose first start takes far longer than the usual 5 seconds.
    if(CMAKE_CROSSCOMPILING)
      set(_timeout DISCOVERY_TIMEOUT 120)
    endif()
    gtest_discover_tests(test_${name} DISCOVERY_MODE PRE_TEST ${_timeout})
  endif()
endfunction()
