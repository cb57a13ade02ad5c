# SPDX-License-Identifier: Apache-2.0
# The simulation of a whole switch: simulation/**/*.cpp without its main is switch-simulation-core.

file(GLOB_RECURSE hobaSimulationSources CONFIGURE_DEPENDS
  "${PROJECT_SOURCE_DIR}/simulation/*.cpp")
list(FILTER hobaSimulationSources EXCLUDE REGEX "/simulation/main\\.cpp$")
hoba_agent_part(switch-simulation-core SOURCES ${hobaSimulationSources} LINK hoba-agent-core)
add_executable(switch-simulation "${PROJECT_SOURCE_DIR}/simulation/main.cpp")
target_link_libraries(switch-simulation PRIVATE switch-simulation-core)
