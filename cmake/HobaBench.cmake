# SPDX-License-Identifier: Apache-2.0
# Every bench/FooBench.cpp becomes the executable FooBench; .cpp files in bench/Foo/, if there are
# any, belong to it. A benchmark that compares with another library simply includes it below
# #if HOBA_BENCH_HAS_<PEER>. Only what a benchmark includes is linked to it: some of these libraries
# start threads merely by being there.

find_package(benchmark REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig)
find_package(absl QUIET)
find_package(tsl-robin-map QUIET)
find_package(Boost QUIET)
find_package(spdlog QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(SIGC QUIET IMPORTED_TARGET sigc++-2.0)
  pkg_check_modules(LTTNG_UST QUIET IMPORTED_TARGET lttng-ust)
  pkg_check_modules(LIBEVENT QUIET IMPORTED_TARGET libevent)
  pkg_check_modules(LMDB QUIET IMPORTED_TARGET lmdb)
endif()

# name of the definition | the #include that asks for it | targets
set(hobaBenchPeers
  "ABSL|absl/|absl::flat_hash_map,absl::node_hash_map,absl::btree,absl::hash,absl::strings"
  "ROBIN_MAP|tsl/robin|tsl::robin_map"
  "BOOST|boost/|Boost::headers"
  "SPDLOG|spdlog/|spdlog::spdlog"
  "SIGC|sigc\\+\\+/|PkgConfig::SIGC"
  "LTTNG_UST|lttng/|PkgConfig::LTTNG_UST"
  "LIBEVENT|event2?/|PkgConfig::LIBEVENT"
  "LMDB|lmdb\\.h|PkgConfig::LMDB")

function(hoba_bench source)
  cmake_path(GET source STEM name)
  string(REGEX REPLACE "Bench$" "" folder "${name}")
  file(GLOB own CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/bench/${folder}/*.cpp")
  file(GLOB ownHeaders CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/bench/${folder}/*.h")
  add_executable(${name} "${source}" ${own})
  target_link_libraries(${name} PRIVATE Hoba::ChipSim Hoba::Hoba Hoba::Platform
    benchmark::benchmark benchmark::benchmark_main Threads::Threads)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}"
    "${PROJECT_SOURCE_DIR}/bench")

  set(includes "")
  foreach(file "${source}" ${own} ${ownHeaders})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
    file(STRINGS "${file}" lines REGEX "^ *# *include *[<\"]")
    list(APPEND includes ${lines})
  endforeach()
  foreach(peer IN LISTS hobaBenchPeers)
    string(REPLACE "|" ";" peer "${peer}")
    list(GET peer 0 definition)
    list(GET peer 1 path)
    list(GET peer 2 targets)
    string(REPLACE "," ";" targets "${targets}")
    list(GET targets 0 first)
    if("${includes}" MATCHES "[<\"]${path}")
      if(TARGET ${first})
        target_link_libraries(${name} PRIVATE ${targets} ${CMAKE_DL_LIBS})
        target_compile_definitions(${name} PRIVATE HOBA_BENCH_HAS_${definition}=1)
      else()
        message(STATUS "${name}: ${definition} is not installed; built without that comparison")
      endif()
    endif()
  endforeach()
endfunction()

file(GLOB hobaBenches CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/bench/*Bench.cpp")
foreach(source IN LISTS hobaBenches)
  hoba_bench("${source}")
endforeach()
