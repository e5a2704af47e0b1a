# SPDX-License-Identifier: MIT
# A build configured with no preset and no option, as packagers and IDEs configure, is the
# program as it ships: it refuses a plain-HTTP service origin, and the service client it builds
# takes no address from the environment. Run as
# `cmake -DSOURCE_DIR=... -DWORK_DIR=... -DGENERATOR=... -P` by CTest.

set(build_dir "${WORK_DIR}/build")

function(configure_plainly result_var output_var)
  file(REMOVE_RECURSE "${build_dir}")
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build_dir}" -G "${GENERATOR}" ${ARGN}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
  set(${result_var} "${result}" PARENT_SCOPE)
  set(${output_var} "${output}" PARENT_SCOPE)
endfunction()

# An http:// origin, and nothing else said.
configure_plainly(result output "-DQUILLMERE_SERVICE_URL=http://api.quillmere.example")
if(result EQUAL 0)
  message(FATAL_ERROR "a plain configure accepted an http:// service origin:\n${output}")
endif()
string(REGEX REPLACE "[ \t\r\n]+" " " flat "${output}")
string(FIND "${flat}" "QUILLMERE_SERVICE_URL is \"http://api.quillmere.example\", but a build without test switches" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the http:// origin failed for another reason:\n${output}")
endif()

# The built-in origin, nothing else said but the probe that reads the client.
# The compiler launcher (ccache) of the build that runs the test, when it has one, changes
# nothing of what is built, only how soon.
set(launchers "")
if(LAUNCHER)
  set(launchers "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" "-DCMAKE_C_COMPILER_LAUNCHER=${LAUNCHER}")
endif()
configure_plainly(result output ${launchers}
  "-DCMAKE_PROJECT_QuillmereLive_INCLUDE=${CMAKE_CURRENT_LIST_DIR}/originprobe.cmake")
if(NOT result EQUAL 0)
  message(FATAL_ERROR "a plain configure failed:\n${output}")
endif()
file(STRINGS "${build_dir}/CMakeCache.txt" switches REGEX "^QUILLMERE_TEST_SWITCHES:")
if(NOT switches STREQUAL "QUILLMERE_TEST_SWITCHES:BOOL=OFF")
  message(FATAL_ERROR "a plain configure has the test switches: ${switches}")
endif()
execute_process(
  COMMAND "${CMAKE_COMMAND}" --build "${build_dir}" --target quillmere_originprobe
  RESULT_VARIABLE result
  OUTPUT_VARIABLE output
  ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the probe did not build:\n${output}")
endif()
# Pointed elsewhere the way a development build is; loopback, and never contacted.
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E env QT_QPA_PLATFORM=offscreen
          QUILLMERE_SERVICE_URL=http://127.0.0.1:9 QUILLMERE_STORAGE_HOST=127.0.0.1:9
          "${build_dir}/quillmere_originprobe"
  RESULT_VARIABLE result
  OUTPUT_VARIABLE output
  ERROR_VARIABLE errors)
file(REMOVE_RECURSE "${build_dir}")
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the probe failed (${result}):\n${output}${errors}")
endif()
set(expected "switches 0\nservice https://api.quillmere.example\nstorage storage.quillmere.example\n")
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the plainly configured client does not keep its built-in addresses; "
                      "expected\n${expected}got\n${output}")
endif()
