find_package(GTest REQUIRED)
include(GoogleTest)

# Test tiers, as ctest labels (ctest -L unit):
#   unit         in-process: no child process, no cross-process lock, no network
#   integration  real processes, semaphores, mounts, loopback HTTP
#   system       a real avahi-daemon, whole daemon runs
#
# kx_add_gtest(<target> SOURCES <files...> LIBS <libraries...> TIER <tier>
#              [ALSO <tier> <gtest filter>] [RESOURCE_LOCK <name>])
# One GoogleTest executable, each of its tests registered with ctest and labelled
# with TIER, but those matching the ALSO filter, which get the other tier. Tests
# that share a RESOURCE_LOCK never run at the same time.
function(kx_add_gtest target)
  cmake_parse_arguments(ARG "" "RESOURCE_LOCK;TIER" "SOURCES;LIBS;ALSO" ${ARGN})
  if(NOT ARG_TIER MATCHES "^(unit|integration|system)$")
    message(FATAL_ERROR "kx_add_gtest(${target}): TIER unit, integration or system")
  endif()
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  set(lock)
  if(ARG_RESOURCE_LOCK)
    set(lock RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
  endif()
  set(filter)
  if(ARG_ALSO)
    list(GET ARG_ALSO 0 other_tier)
    list(GET ARG_ALSO 1 other_tests)
    set(filter TEST_FILTER "-${other_tests}")
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 TEST_FILTER "${other_tests}"
                         PROPERTIES LABELS ${other_tier} ${lock})
  endif()
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 ${filter}
                       PROPERTIES LABELS ${ARG_TIER} ${lock})
endfunction()

# Whether the installation daemon runs is decided by a process named "kxsid"
# anywhere on the machine, so the tests that start one, or that need none to
# run, take turns.
set(KX_DAEMON_PROCESS_LOCK kxsid-process)

# Cross-compiled trees run their tests under CMAKE_CROSSCOMPILING_EMULATOR. Tests that
# need what the emulator cannot give skip themselves on KX_UNDER_EMULATION, saying why.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  add_compile_definitions(KX_UNDER_EMULATION=1)
endif()

# kx_program_path(<target> <variable>)
# Sets <variable> to a path that a test can exec to start the program <target>: its own
# file, or in a cross-compiled tree a script that starts it under the emulator (same
# process: the script execs it, so signals and the exit status reach the test). The
# emulator is started through a link named like the program, so that the kernel gives
# the process the program's command name, which process look-ups compare.
function(kx_program_path target variable)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    set(${variable} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
    return()
  endif()
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  set(emulator ${CMAKE_CROSSCOMPILING_EMULATOR})
  list(POP_FRONT emulator emulator_program)
  set(link "${CMAKE_CURRENT_BINARY_DIR}/${target}.emulator/${name}")
  file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/${target}.emulator")
  file(CREATE_LINK "${emulator_program}" "${link}" SYMBOLIC)
  set(command "exec '${link}'")
  foreach(word IN LISTS emulator)
    string(APPEND command " '${word}'")
  endforeach()
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.emulated")
  file(GENERATE OUTPUT "${script}"
       CONTENT "#!/bin/sh\n${command} '$<TARGET_FILE:${target}>' \"$@\"\n"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(${variable} "${script}" PARENT_SCOPE)
endfunction()
