# zord410_test(NAME SOURCES... [LINK LIBRARIES...]): a GoogleTest program whose tests each run in a
# process of their own, because the library reads its environment once per process.
find_package(GTest REQUIRED)
include(GoogleTest)

function(zord410_test name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE
    zord410_warnings zord410_test_support zord410_static GTest::gmock GTest::gtest_main ${ARG_LINK})
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/test-bin)
  gtest_discover_tests(${name} TEST_PREFIX ${name}. PROPERTIES TIMEOUT 60)
endfunction()
