# SPDX-License-Identifier: Apache-2.0
# Installs BUILD_DIR below WORK_DIR, moves the installation (nothing in it may know where it was
# made), builds the example in CONSUMER_DIR against it and runs what was built and what was installed.

function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: status ${status}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
step("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/first")
file(RENAME "${WORK_DIR}/first" "${WORK_DIR}/prefix")

step("${CMAKE_COMMAND}" -G Ninja -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build"
  "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix")
step("${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
step("${WORK_DIR}/build/${CONSUMER}")

foreach(tool hoba-agent hobactl)
  if(EXISTS "${WORK_DIR}/prefix/bin/${tool}")
    step("${WORK_DIR}/prefix/bin/${tool}" --help)
  endif()
endforeach()
