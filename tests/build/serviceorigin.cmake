# SPDX-License-Identifier: MIT
# A build without test switches refuses a service origin that is not https://, at configure
# time; an https origin configures. Run as `cmake -DSOURCE_DIR=... -DWORK_DIR=... -P` by CTest:
# each case configures the project afresh in a throwaway folder, with only the core to build.

function(configure_with origin result_var output_var)
  set(build_dir "${WORK_DIR}/build")
  file(REMOVE_RECURSE "${build_dir}")
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build_dir}" -G "${GENERATOR}"
            -DQUILLMERE_TEST_SWITCHES=OFF "-DQUILLMERE_SERVICE_URL=${origin}"
            -DQUILLMERE_BUILD_TESTS=OFF -DQUILLMERE_BUILD_BENCH=OFF -DQUILLMERE_BUILD_APP=OFF
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output)
  file(REMOVE_RECURSE "${build_dir}")
  set(${result_var} "${result}" PARENT_SCOPE)
  set(${output_var} "${output}" PARENT_SCOPE)
endfunction()

foreach(refused "http://api.quillmere.example" "api.quillmere.example" ""
                "https://api.quillmere.example/")
  configure_with("${refused}" result output)
  if(result EQUAL 0)
    message(FATAL_ERROR "the origin \"${refused}\" was accepted:\n${output}")
  endif()
  # CMake wraps the lines of an error message.
  string(REGEX REPLACE "[ \t\r\n]+" " " flat "${output}")
  string(FIND "${flat}" "QUILLMERE_SERVICE_URL is \"${refused}\", but a build without test switches"
         at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the origin \"${refused}\" failed for another reason:\n${output}")
  endif()
endforeach()

configure_with("https://api.quillmere.example" result output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the https origin was refused:\n${output}")
endif()
