# SPDX-License-Identifier: Apache-2.0
# tests/ mirrors the tree. Every folder below it becomes one binary of all its *Test.cpp files:
# tests/platform -> platform-tests, tests/Hoba -> hoba-tests, and so on for any new folder. Other
# .cpp files of the folder are that binary's own support code.

find_package(GTest REQUIRED)
include(GoogleTest)

set(hobaTestsDir "${PROJECT_SOURCE_DIR}/tests")
set(hobaTestTimeout 120)
if(HOBA_SANITIZE)
  set(hobaTestTimeout 300)
endif()

# hoba_tests( name LINK targets... SOURCES files... )
function(hoba_tests name)
  cmake_parse_arguments(ARG "" "" "LINK;SOURCES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}" "${hobaTestsDir}")
  target_compile_definitions(${name} PRIVATE HOBA_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  if(HOBA_SANITIZE)
    # Optimising instrumented expectations takes more than half of their compile time, and finds
    # nothing. What is tested is optimised as the preset says.
    target_compile_options(${name} PRIVATE -O0)
  endif()
  # Discovery waits for ctest: a test binary that crashes at start then fails there, where its
  # output is shown, and the build runs nothing.
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${hobaTestTimeout})
endfunction()

# Tests that run the tools find them by these names.
function(hoba_tests_run_tools name)
  if(TARGET hoba-agent)
    add_dependencies(${name} hoba-agent)
    target_compile_definitions(${name} PRIVATE HOBA_AGENT_PATH="$<TARGET_FILE:hoba-agent>")
  endif()
  if(TARGET hobactl)
    add_dependencies(${name} hobactl)
    target_compile_definitions(${name} PRIVATE HOBACTL_PATH="$<TARGET_FILE:hobactl>")
  endif()
endfunction()

set(hobaTestLink_platform Hoba::Platform)
set(hobaTestLink_types Hoba::Hoba)
set(hobaTestLink_Hoba Hoba::Hoba Hoba::ChipSim)
set(hobaTestLink_chips Hoba::Hoba Hoba::ChipSim)
set(hobaTestLink_hobactl hobactl-core)
set(hobaTestLink_simulation switch-simulation-core)

file(GLOB_RECURSE hobaTestFiles CONFIGURE_DEPENDS RELATIVE "${hobaTestsDir}"
  "${hobaTestsDir}/*.cpp")
set(hobaTestFolders "")
foreach(file IN LISTS hobaTestFiles)
  string(REGEX MATCH "^[^/]+" folder "${file}")
  if(file MATCHES "^agent/hobactl/")
    set(folder hobactl)
  endif()
  if(folder MATCHES "\\.cpp$")
    continue()
  endif()
  list(APPEND hobaTestFolders "${folder}")
  list(APPEND hobaTestSources_${folder} "${hobaTestsDir}/${file}")
endforeach()
list(REMOVE_DUPLICATES hobaTestFolders)

foreach(folder IN LISTS hobaTestFolders)
  if(NOT "${hobaTestSources_${folder}}" MATCHES "Test\\.cpp(;|$)")
    continue()
  endif()
  string(TOLOWER "${folder}-tests" binary)
  if(DEFINED hobaTestLink_${folder})
    set(link ${hobaTestLink_${folder}})
  elseif(HOBA_AGENT)
    set(link hoba-agent-core)
  else()
    continue()
  endif()
  if(folder MATCHES "^(hobactl|simulation)$" AND NOT HOBA_AGENT)
    continue()
  endif()
  hoba_tests(${binary} SOURCES ${hobaTestSources_${folder}} LINK ${link})
  if(NOT folder MATCHES "^(platform|types|Hoba|chips)$")
    hoba_tests_run_tools(${binary})
  endif()
endforeach()

# Histories of a whole switch, and that each is the same in every process: with other addresses, and with
# another environment.
if(TARGET switch-simulation)
  add_test(NAME simulation.histories COMMAND switch-simulation --seeds 20 --shrink 60)
  add_test(NAME simulation.sameTraces COMMAND bash -c [[
    trace() { "$0" --seed 7 --trace "$1" >"$1.out" || { cat "$1.out"; exit 1; }; }
    trace "$1.1" && ( ulimit -s 65536; TZ=Asia/Tokyo LAYOUT=$( printf %50000d 1 ) trace "$1.2" ) &&
    cmp "$1.1" "$1.2" && (( $( wc -l <"$1.1" ) > 1000 )) && rm "$1".*]]
    "$<TARGET_FILE:switch-simulation>" "${PROJECT_BINARY_DIR}/trace")
  set_tests_properties(simulation.histories simulation.sameTraces PROPERTIES
    TIMEOUT ${hobaTestTimeout})
endif()

# Who may include whom, checked on the text of the tree.
add_test(NAME tree.layers COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-layers")

# MAC and IP addresses in all its texts are nobody's.
add_test(NAME tree.addresses COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-addresses")
# The code that a page quotes is code of the tree.
add_test(NAME tree.quotes COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-quotes")

# Every examples/X/main.cpp, with the sources beside it, becomes X, and prints what its expected.txt
# says.
file(GLOB hobaExamples CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/*/main.cpp")
foreach(main IN LISTS hobaExamples)
  cmake_path(GET main PARENT_PATH folder)
  cmake_path(GET folder FILENAME name)
  file(GLOB sources CONFIGURE_DEPENDS "${folder}/*.cpp")
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE Hoba::Hoba)
  add_test(NAME examples.${name}
    COMMAND bash -c [[out=$("$0") && diff -u "$1" - <<<"$out"]]
    "$<TARGET_FILE:${name}>" "${folder}/expected.txt")
  set_tests_properties(examples.${name} PROPERTIES TIMEOUT ${hobaTestTimeout})
endforeach()

# A user's view: install, find_package( Hoba ), build an example, run. Says nothing about memory, so
# the sanitized build leaves it out.
get_target_property(hobaKind Hoba TYPE)
if(hobaKind STREQUAL "SHARED_LIBRARY" AND NOT HOBA_SANITIZE)
  add_test(NAME install.consumer COMMAND "${CMAKE_COMMAND}"
    -D "BUILD_DIR=${PROJECT_BINARY_DIR}"
    -D "CONSUMER_DIR=${PROJECT_SOURCE_DIR}/examples/small-chip"
    -D "CONSUMER=small-chip"
    -D "WORK_DIR=${PROJECT_BINARY_DIR}/install-test"
    -D "CXX=${CMAKE_CXX_COMPILER}"
    -P "${hobaTestsDir}/install/run.cmake")
  set_tests_properties(install.consumer PROPERTIES TIMEOUT ${hobaTestTimeout})
endif()
