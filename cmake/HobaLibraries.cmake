# SPDX-License-Identifier: Apache-2.0
# The libraries. Folders are globbed, so that a new source file needs no edit here. A library whose
# folder holds no source file becomes a header-only target: what stands on it still configures.

# hoba_library( name SHARED|STATIC BASE dir SOURCES globs... HEADERS globs... LINK targets... )
# Headers are installable; #include paths start at BASE.
function(hoba_library name kind)
  cmake_parse_arguments(ARG "" "BASE" "SOURCES;HEADERS;LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${ARG_SOURCES})
  file(GLOB headers CONFIGURE_DEPENDS ${ARG_HEADERS})
  if(sources)
    add_library(${name} ${kind} ${sources})
    set(scope PUBLIC)
    if(kind STREQUAL "SHARED")
      set_target_properties(${name} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    endif()
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_sources(${name} ${scope} FILE_SET HEADERS BASE_DIRS ${ARG_BASE} FILES ${headers})
  target_compile_features(${name} ${scope} cxx_std_20)
  target_link_libraries(${name} ${scope} ${ARG_LINK})
endfunction()

if(EXISTS "${HOBA_PLATFORM_DIR}/CMakeLists.txt")
  # A platform with a build of its own defines Hoba::Platform itself.
  add_subdirectory("${HOBA_PLATFORM_DIR}" platform)
  if(NOT TARGET Hoba::Platform)
    message(FATAL_ERROR "${HOBA_PLATFORM_DIR}/CMakeLists.txt defines no target Hoba::Platform")
  endif()
elseif(IS_DIRECTORY "${HOBA_PLATFORM_DIR}")
  hoba_library(HobaPlatform SHARED BASE "${HOBA_PLATFORM_DIR}"
    SOURCES "${HOBA_PLATFORM_DIR}/*/*.cpp"
    HEADERS "${HOBA_PLATFORM_DIR}/*/*.h")
  add_library(Hoba::Platform ALIAS HobaPlatform)
  set_target_properties(HobaPlatform PROPERTIES EXPORT_NAME Platform)
else()
  message(FATAL_ERROR
    "HOBA_PLATFORM_DIR: no folder ${HOBA_PLATFORM_DIR}; expected the platform libraries there")
endif()

hoba_library(Hoba SHARED BASE "${PROJECT_SOURCE_DIR}"
  SOURCES "${PROJECT_SOURCE_DIR}/Hoba/*.cpp" "${PROJECT_SOURCE_DIR}/types/*.cpp"
  HEADERS "${PROJECT_SOURCE_DIR}/Hoba/*.h" "${PROJECT_SOURCE_DIR}/types/*.h"
  LINK Hoba::Platform)
add_library(Hoba::Hoba ALIAS Hoba)

hoba_library(HobaChipSim STATIC BASE "${PROJECT_SOURCE_DIR}"
  SOURCES "${PROJECT_SOURCE_DIR}/chips/sim/*.cpp"
  HEADERS "${PROJECT_SOURCE_DIR}/chips/sim/*.h"
  LINK Hoba::Hoba)
add_library(Hoba::ChipSim ALIAS HobaChipSim)
set_target_properties(HobaChipSim PROPERTIES OUTPUT_NAME hoba-chip-sim)

# Packet captures. Nobody but the simulated chip needs to know.
find_path(HOBA_PCAP_INCLUDE_DIR pcap.h)
find_library(HOBA_PCAP_LIBRARY pcap)
if(NOT HOBA_PCAP_INCLUDE_DIR OR NOT HOBA_PCAP_LIBRARY)
  message(FATAL_ERROR "libpcap: pcap.h or the library not found; scripts/packages build installs it")
endif()
target_include_directories(HobaChipSim PRIVATE "${HOBA_PCAP_INCLUDE_DIR}")
target_link_libraries(HobaChipSim PRIVATE "${HOBA_PCAP_LIBRARY}")
