# SPDX-License-Identifier: MIT
# LibRaw ships no CMake package. Finds its thread-safe library (libraw_r; vcpkg and Homebrew
# name it so as well, and Windows builds may call it raw_r or raw) and the version from its
# header, with pkg-config's answer, where there is one, as a hint only.
#   LibRaw::LibRaw      the imported library
#   LibRaw_VERSION      from libraw_version.h
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
  pkg_check_modules(PC_LIBRAW QUIET libraw_r)
endif()

find_path(LibRaw_INCLUDE_DIR libraw/libraw.h HINTS ${PC_LIBRAW_INCLUDEDIR} ${PC_LIBRAW_INCLUDE_DIRS})
find_library(LibRaw_LIBRARY NAMES raw_r libraw_r raw libraw
  HINTS ${PC_LIBRAW_LIBDIR} ${PC_LIBRAW_LIBRARY_DIRS})

if(LibRaw_INCLUDE_DIR AND EXISTS "${LibRaw_INCLUDE_DIR}/libraw/libraw_version.h")
  file(STRINGS "${LibRaw_INCLUDE_DIR}/libraw/libraw_version.h" version_lines
       REGEX "^#define LIBRAW_(MAJOR|MINOR|PATCH)_VERSION[ \t]+[0-9]+")
  foreach(part MAJOR MINOR PATCH)
    string(REGEX REPLACE ".*#define LIBRAW_${part}_VERSION[ \t]+([0-9]+).*" "\\1"
           LibRaw_${part} "${version_lines}")
  endforeach()
  set(LibRaw_VERSION "${LibRaw_MAJOR}.${LibRaw_MINOR}.${LibRaw_PATCH}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LibRaw
  REQUIRED_VARS LibRaw_LIBRARY LibRaw_INCLUDE_DIR
  VERSION_VAR LibRaw_VERSION)

if(LibRaw_FOUND AND NOT TARGET LibRaw::LibRaw)
  add_library(LibRaw::LibRaw UNKNOWN IMPORTED)
  set_target_properties(LibRaw::LibRaw PROPERTIES
    IMPORTED_LOCATION "${LibRaw_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${LibRaw_INCLUDE_DIR}")
  # LibRaw reads big-endian fields with the sockets library's ntohs/ntohl on Windows.
  if(WIN32)
    set_property(TARGET LibRaw::LibRaw APPEND PROPERTY INTERFACE_LINK_LIBRARIES ws2_32)
  endif()
  # The thread-safe library is built with OpenMP where the system's compiler has it.
  if(PC_LIBRAW_FOUND)
    set_property(TARGET LibRaw::LibRaw APPEND PROPERTY
                 INTERFACE_LINK_OPTIONS ${PC_LIBRAW_LDFLAGS_OTHER})
  endif()
endif()
mark_as_advanced(LibRaw_INCLUDE_DIR LibRaw_LIBRARY)
