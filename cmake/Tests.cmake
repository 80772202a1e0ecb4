# zord410_test(NAME SOURCES... [LINK LIBRARIES...] [WRAP FUNCTIONS...] [RECORDS_SLEEPS] [PASSES_TIME]
# [PROPERTIES ...]): a GoogleTest program whose tests each run in a process of their own, because the
# library reads its environment once per process.
#  WRAP            calls of these functions lead to the test's __wrap_FUNCTION
#  RECORDS_SLEEPS  OSV1_Sleep returns at once: see tests/support/recorded_sleep.h
#  PASSES_TIME     std::chrono::steady_clock can be put forward: see tests/support/passing_time.h
#  PROPERTIES      of every test, as for set_tests_properties; those that take many seconds have a
#                  COST, which lets them start first
set(ZORD410_GTEST_SOURCE "" CACHE PATH
  "Build GoogleTest from this folder, where the system has none for this build's processor")
if(ZORD410_GTEST_SOURCE)
  set(INSTALL_GTEST OFF)
  add_subdirectory(${ZORD410_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(library gmock gtest gtest_main)
    target_compile_options(${library} PRIVATE -w -O0) # its warnings are not ours to act on
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# zord410_build_quickly(TARGET): for tests and what only they use.
function(zord410_build_quickly target)
  # A test is built far more often than its own code is worth optimising: this halves the build. What
  # the sanitizer for undefined behaviour does at every pointer is for the code under test, too.
  target_compile_options(${target} PRIVATE
    -O0 -U_FORTIFY_SOURCE -fno-sanitize=alignment,null,object-size,vptr)
  # Several sources at a time, which share what they read and instantiate: this makes a third of what
  # is left. For the debugger each is compiled on its own, so that a change to one is built soonest.
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  endif()
endfunction()

function(zord410_test name)
  cmake_parse_arguments(ARG "RECORDS_SLEEPS;PASSES_TIME" "" "LINK;WRAP;PROPERTIES" ${ARGN})
  if(ARG_RECORDS_SLEEPS)
    list(APPEND ARG_WRAP _Z10OSV1_Sleepi)
    list(APPEND ARG_UNPARSED_ARGUMENTS ${PROJECT_SOURCE_DIR}/tests/support/recorded_sleep.cpp)
  endif()
  if(ARG_PASSES_TIME)
    list(APPEND ARG_WRAP _ZNSt6chrono3_V212steady_clock3nowEv)
    list(APPEND ARG_UNPARSED_ARGUMENTS ${PROJECT_SOURCE_DIR}/tests/support/passing_time.cpp)
  endif()
  if(CMAKE_CXX_FLAGS MATCHES "--coverage")
    list(APPEND ARG_WRAP _exit)
    list(APPEND ARG_UNPARSED_ARGUMENTS ${PROJECT_SOURCE_DIR}/tests/support/counted_exit.cpp)
  endif()
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE
    zord410_warnings zord410_test_support zord410_static GTest::gmock GTest::gtest_main ${ARG_LINK})
  list(TRANSFORM ARG_WRAP PREPEND "-Wl,--wrap=")
  target_link_options(${name} PRIVATE ${ARG_WRAP})
  zord410_build_quickly(${name})
  # All tests read the same headers, which the first of them compiles for all. A compiler cache does
  # that by itself, and better.
  if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    get_property(first GLOBAL PROPERTY zord410_first_test)
    if(first)
      target_precompile_headers(${name} REUSE_FROM ${first})
    else()
      target_precompile_headers(${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
      set_property(GLOBAL PROPERTY zord410_first_test ${name})
    endif()
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/test-bin)
  # Values would show as bytes, addresses among them, that differ from build to build.
  gtest_discover_tests(${name} NO_PRETTY_VALUES TEST_PREFIX ${name}. PROPERTIES TIMEOUT 60 ${ARG_PROPERTIES})
endfunction()
