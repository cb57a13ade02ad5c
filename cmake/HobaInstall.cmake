# SPDX-License-Identifier: Apache-2.0
# cmake --install: libraries, headers, tools, and the package that find_package( Hoba ) finds.
# The installed include tree mirrors the source tree, so that #include "Kiv/Entity.h" and
# #include "Hoba/HobaCommon.h" read the same on either side.

include(CMakePackageConfigHelpers)

set(hobaIncludeDir "${CMAKE_INSTALL_INCLUDEDIR}/hoba")
set(hobaPackageDir "${CMAKE_INSTALL_LIBDIR}/cmake/Hoba")

if(TARGET HobaPlatform)
  install(TARGETS HobaPlatform EXPORT HobaTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    FILE_SET HEADERS DESTINATION "${hobaIncludeDir}/platform")
endif()
install(TARGETS Hoba EXPORT HobaTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  FILE_SET HEADERS DESTINATION "${hobaIncludeDir}")
install(EXPORT HobaTargets NAMESPACE Hoba:: DESTINATION "${hobaPackageDir}")

configure_package_config_file(cmake/HobaConfig.cmake.in "${PROJECT_BINARY_DIR}/HobaConfig.cmake"
  INSTALL_DESTINATION "${hobaPackageDir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/HobaConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/HobaConfig.cmake"
  "${PROJECT_BINARY_DIR}/HobaConfigVersion.cmake" DESTINATION "${hobaPackageDir}")

foreach(tool hoba-agent hobactl)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endif()
endforeach()

set(hobactlCompletion "${PROJECT_SOURCE_DIR}/agent/hobactl/completion/hobactl.bash")
if(TARGET hobactl AND EXISTS "${hobactlCompletion}")
  install(FILES "${hobactlCompletion}" RENAME hobactl
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endif()
