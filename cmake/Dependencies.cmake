# SPDX-License-Identifier: MIT
# The libraries, found the way each platform provides them: the CMake package first (vcpkg,
# Homebrew and the libraries' own installs ship one), CMake's own Find module where there is one,
# pkg-config only where neither is there. Whatever found them, the build links the same target
# names: TIFF::TIFF, PNG::PNG, libjpeg-turbo::turbojpeg, libjpeg-turbo::jpeg, lcms2::lcms2,
# LibRaw::LibRaw, QRencode::QRencode and, for devservice only, httplib::httplib.
include_guard(GLOBAL)

# A target of the library's own name over what pkg-config found, when nothing else found it.
function(quillmere_pkg_config_target target module)
  find_package(PkgConfig REQUIRED)
  string(MAKE_C_IDENTIFIER "${module}" prefix)
  pkg_check_modules(${prefix} REQUIRED IMPORTED_TARGET ${module})
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_link_libraries(${target} INTERFACE PkgConfig::${prefix})
  set(${prefix}_VERSION "${${prefix}_VERSION}" PARENT_SCOPE)
endfunction()

find_package(TIFF 4.0 REQUIRED)
find_package(PNG 1.6 REQUIRED)

find_package(libjpeg-turbo 2.0 CONFIG QUIET)
if(NOT TARGET libjpeg-turbo::turbojpeg)
  quillmere_pkg_config_target(libjpeg-turbo::turbojpeg libturbojpeg)
  quillmere_pkg_config_target(libjpeg-turbo::jpeg libjpeg)
endif()

# A library that ships no CMake file of its own: its header and library where the compiler looks
# (Debian, Homebrew, vcpkg's installed tree), pkg-config only after that.
function(quillmere_find_plain_library target header pkg_module)
  string(MAKE_C_IDENTIFIER "${target}" id)
  find_path(${id}_INCLUDE_DIR ${header})
  find_library(${id}_LIBRARY NAMES ${ARGN})
  mark_as_advanced(${id}_INCLUDE_DIR ${id}_LIBRARY)
  if(${id}_INCLUDE_DIR AND ${id}_LIBRARY)
    add_library(${target} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES IMPORTED_LOCATION "${${id}_LIBRARY}"
                          INTERFACE_INCLUDE_DIRECTORIES "${${id}_INCLUDE_DIR}")
  else()
    quillmere_pkg_config_target(${target} ${pkg_module})
  endif()
endfunction()

# Little CMS: vcpkg's package where there is one, else as a plain library.
find_package(lcms2 CONFIG QUIET)
if(NOT TARGET lcms2::lcms2)
  quillmere_find_plain_library(lcms2::lcms2 lcms2.h lcms2 lcms2 liblcms2)
endif()

# libqrencode, for the QR codes of the links.
quillmere_find_plain_library(QRencode::QRencode qrencode.h libqrencode qrencode libqrencode)

# LibRaw has no package of its own: cmake/FindLibRaw.cmake. 0.20 to 0.22 are the versions the
# sources handle (see rawpreview.cpp); a later one is tried, with a warning.
find_package(LibRaw 0.20 REQUIRED)
if(LibRaw_VERSION VERSION_GREATER_EQUAL 0.23)
  message(WARNING "LibRaw ${LibRaw_VERSION} is newer than 0.22, the last this program was "
                  "written for: check the memory limits in rawpreview.cpp against its changes.")
endif()

# cpp-httplib, for devservice alone: only builds that ask for devservice, its tests or the
# benchmarks that run it look for it at all. 0.11 is Debian 12's; the sources handle the
# task-queue interface of every release since.
function(quillmere_find_httplib)
  find_package(httplib 0.11 CONFIG QUIET)
  if(TARGET httplib::httplib)
    return()
  endif()
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(cpp_httplib IMPORTED_TARGET cpp-httplib>=0.11)
  if(NOT cpp_httplib_FOUND)
    message(FATAL_ERROR "cpp-httplib 0.11 or later is needed for devservice, the tests and the "
                        "benchmarks: neither its CMake package (httplib) nor its pkg-config "
                        "module (cpp-httplib) was found. The program alone (the package "
                        "preset) does not need it.")
  endif()
  add_library(httplib::httplib INTERFACE IMPORTED GLOBAL)
  target_link_libraries(httplib::httplib INTERFACE PkgConfig::cpp_httplib)
endfunction()
