find_package(GTest REQUIRED)
include(GoogleTest)

# kx_add_gtest(<target> SOURCES <files...> LIBS <libraries...>)
# One GoogleTest executable, each of its tests registered with ctest.
function(kx_add_gtest target)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()
