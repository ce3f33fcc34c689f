# GoogleTest: Debian's prebuilt package natively, built from Debian's sources when cross-compiling
# (or when asked to).
if(CMAKE_CROSSCOMPILING OR SONVEL_GTEST_FROM_SOURCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  if(NOT TARGET GTest::gtest)
    add_library(GTest::gtest ALIAS gtest)
    add_library(GTest::gtest_main ALIAS gtest_main)
  endif()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# One test program per directory of tests/, linked against the given libraries.
function(sonvel_test_dir dir)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp)
  if(NOT srcs)
    return()
  endif()
  set(target test_${dir})
  add_executable(${target} ${srcs})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE ${ARGN} GTest::gtest_main)
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
endfunction()
