# SPDX-License-Identifier: Apache-2.0
# The agent and its tool.
#
#    agent/common/*.cpp    hoba-agent-common   what both ends of the socket share
#    agent/**/*.cpp        hoba-agent-core     the agent without its main
#    agent/main.cpp        hoba-agent
#    agent/hobactl/*.cpp   hobactl-core, and hobactl from its main.cpp; of the library and the chip it
#                          needs but the data types

find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(Threads REQUIRED)

set(hobaAgentDir "${PROJECT_SOURCE_DIR}/agent")

# hoba_agent_part( name LINK targets... SOURCES files... )
function(hoba_agent_part name)
  cmake_parse_arguments(ARG "" "" "LINK;SOURCES" ${ARGN})
  if(ARG_SOURCES)
    add_library(${name} STATIC ${ARG_SOURCES})
    set(scope PUBLIC)
  else()
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${name} ${scope} "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} ${scope} ${ARG_LINK})
endfunction()

file(GLOB hobaCommonSources CONFIGURE_DEPENDS "${hobaAgentDir}/common/*.cpp")
hoba_agent_part(hoba-agent-common SOURCES ${hobaCommonSources}
  LINK Hoba::Platform nlohmann_json::nlohmann_json CLI11::CLI11 Threads::Threads)
set_source_files_properties("${hobaAgentDir}/common/Version.cpp" PROPERTIES
  COMPILE_DEFINITIONS "HOBA_VERSION=\"${PROJECT_VERSION}\"")

file(GLOB_RECURSE hobaAgentSources CONFIGURE_DEPENDS "${hobaAgentDir}/*.cpp")
list(FILTER hobaAgentSources EXCLUDE REGEX "/agent/(main\\.cpp|common/|hobactl/)")
hoba_agent_part(hoba-agent-core SOURCES ${hobaAgentSources}
  LINK hoba-agent-common Hoba::ChipSim Hoba::Hoba)

file(GLOB hobactlSources CONFIGURE_DEPENDS "${hobaAgentDir}/hobactl/*.cpp")
list(FILTER hobactlSources EXCLUDE REGEX "/hobactl/main\\.cpp$")
hoba_agent_part(hobactl-core SOURCES ${hobactlSources} LINK hoba-agent-common Hoba::ChipSim)

# hoba_tool( name source core ) makes the tool once its main exists.
function(hoba_tool name source core)
  # The glob, where a mere EXISTS would do, makes the build notice the file's arrival.
  file(GLOB found CONFIGURE_DEPENDS "${source}")
  if(found)
    add_executable(${name} ${found})
    target_link_libraries(${name} PRIVATE ${core})
  endif()
endfunction()
hoba_tool(hoba-agent "${hobaAgentDir}/main.cpp" hoba-agent-core)
hoba_tool(hobactl "${hobaAgentDir}/hobactl/main.cpp" hobactl-core)
