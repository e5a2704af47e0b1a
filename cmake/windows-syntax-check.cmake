# SPDX-License-Identifier: MIT
# Compiles every source file of the shipped program for Windows with MinGW-w64, syntax only,
# against this system's Qt, QCoro, LibRaw, libjpeg-turbo, libtiff and libpng headers, with the
# definitions, include folders and warnings the build gives each file (its
# compile_commands.json). What it proves: nothing POSIX-only, nothing GCC-on-Linux-only, reaches
# the Windows build. What it cannot: linking, MSVC, running.
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DCOMPILER=... -DNINJA=... -DHEADER_FILES=... -P
# HEADER_FILES lists the third-party headers that live in the system's include folder, which
# cannot be put on the path whole (glibc's headers would shadow MinGW's): they are linked into a
# folder of their own.

foreach(required BUILD_DIR SOURCE_DIR NINJA)
  if(NOT ${required})
    message(FATAL_ERROR "windows-syntax-check: ${required} is not set")
  endif()
endforeach()
# Like every check that needs a tool: skipped on a developer's machine, failed under CI.
if(NOT COMPILER OR NOT EXISTS "${COMPILER}")
  set(missing "windows-syntax-check: x86_64-w64-mingw32-g++-posix cannot be used: it is not "
              "installed (package g++-mingw-w64-x86-64-posix, see scripts/install-deps)")
  if("$ENV{CI}" STREQUAL "true")
    message(FATAL_ERROR ${missing})
  endif()
  message(STATUS ${missing} " - skipped on this machine; under CI=true it fails")
  return()
endif()
string(REPLACE "|" ";" HEADER_FILES "${HEADER_FILES}")

set(work_dir "${BUILD_DIR}/windows-syntax")
file(REMOVE_RECURSE "${work_dir}")
file(MAKE_DIRECTORY "${work_dir}/include")
foreach(header ${HEADER_FILES})
  get_filename_component(name "${header}" NAME)
  file(CREATE_LINK "${header}" "${work_dir}/include/${name}" SYMBOLIC)
endforeach()

# What Qt's CMake gives every target on Windows, and MinGW's secure CRT functions Qt uses.
set(windows_flags -DUNICODE -D_UNICODE -DWIN32 -DWIN64 -D_WIN64 -DMINGW_HAS_SECURE_API=1
                  -D_ENABLE_EXTENDED_ALIGNED_STORAGE "-isystem" "${work_dir}/include")

function(ninja_quoted out)
  set(quoted "")
  foreach(argument ${ARGN})
    string(REPLACE "'" "'\\''" argument "${argument}")
    string(REPLACE "$" "$$" argument "${argument}")
    string(APPEND quoted " '${argument}'")
  endforeach()
  set(${out} "${quoted}" PARENT_SCOPE)
endfunction()

file(READ "${BUILD_DIR}/compile_commands.json" commands)
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
set(ninja "rule syntax\n  command = $cmd\n  description = Windows syntax $in\n\n")
set(checked 0)
foreach(index RANGE ${last})
  string(JSON file GET "${commands}" ${index} file)
  file(RELATIVE_PATH relative "${SOURCE_DIR}" "${file}")
  # Our own sources of the program; not the code Qt's tools generate, not the tests. A file
  # that one system has its own of (name_other.cpp here) stands for Windows' (name_win.cpp),
  # checked with the same flags, as the build would give them on Windows.
  if(NOT relative MATCHES "^src/.*\\.cpp$")
    continue()
  endif()
  if(relative MATCHES "_other\\.cpp$")
    string(REGEX REPLACE "_other\\.cpp$" "_win.cpp" relative "${relative}")
    set(file "${SOURCE_DIR}/${relative}")
    if(NOT EXISTS "${file}")
      continue()
    endif()
  endif()
  string(JSON command GET "${commands}" ${index} command)
  separate_arguments(tokens UNIX_COMMAND "${command}")
  set(flags "")
  set(take_next FALSE)
  foreach(token ${tokens})
    if(take_next)
      string(REPLACE "/mkspecs/linux-g++" "/mkspecs/win32-g++" token "${token}")
      list(APPEND flags "${token}")
      set(take_next FALSE)
    elseif(token STREQUAL "-isystem")
      list(APPEND flags "${token}")
      set(take_next TRUE)
    elseif(token MATCHES "^-(D|I|std=|W)" AND NOT token MATCHES "^-fsanitize")
      list(APPEND flags "${token}")
    endif()
  endforeach()
  ninja_quoted(quoted "${COMPILER}" -fsyntax-only ${windows_flags} ${flags} "${file}")
  string(MAKE_C_IDENTIFIER "${relative}" stamp)
  string(APPEND ninja "build ${stamp}: syntax ${file}\n  cmd =${quoted} && touch ${stamp}\n")
  math(EXPR checked "${checked} + 1")
endforeach()
# The resource scripts (icon, version, manifest), with the version the build gives them.
if(RC_COMPILER AND EXISTS "${RC_COMPILER}")
  string(REPLACE "." ";" version_parts "${VERSION}")
  list(GET version_parts 0 major)
  list(GET version_parts 1 minor)
  list(GET version_parts 2 patch)
  file(GLOB resource_scripts "${SOURCE_DIR}/packaging/windows/*.rc")
  foreach(script ${resource_scripts})
    get_filename_component(folder "${script}" DIRECTORY)
    file(RELATIVE_PATH relative "${SOURCE_DIR}" "${script}")
    string(MAKE_C_IDENTIFIER "${relative}" stamp)
    ninja_quoted(quoted "${RC_COMPILER}" -I "${folder}" -DQUILLMERE_VERSION_MAJOR=${major}
      -DQUILLMERE_VERSION_MINOR=${minor} -DQUILLMERE_VERSION_PATCH=${patch}
      "-DQUILLMERE_VERSION_STRING=\\\"${VERSION}\\\"" -O coff -o "${stamp}.res" "${script}")
    string(APPEND ninja "build ${stamp}: syntax ${script}\n  cmd =${quoted} && touch ${stamp}\n")
    math(EXPR checked "${checked} + 1")
  endforeach()
endif()
if(checked EQUAL 0)
  message(FATAL_ERROR "windows-syntax-check: no source of the program in ${BUILD_DIR}/compile_commands.json")
endif()
file(WRITE "${work_dir}/build.ninja" "${ninja}")
execute_process(COMMAND "${NINJA}" -C "${work_dir}" -k 0 RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "windows-syntax-check: some of the ${checked} source files and resource scripts do not compile for Windows")
endif()
message(STATUS "windows-syntax-check: all ${checked} source files and resource scripts of the program compile for Windows")
