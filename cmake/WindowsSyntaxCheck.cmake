# SPDX-License-Identifier: MIT
# The target windows_syntax_check, and with the tests the test of the same name: every source
# file of the program compiled for Windows by MinGW-w64, syntax only, and its resource scripts
# by windres (windows-syntax-check.cmake
# says what that proves). Not part of any build: CI runs it in the dev suite and in
# scripts/package-check, where the definitions are the shipped program's.
find_program(QUILLMERE_MINGW_CXX x86_64-w64-mingw32-g++-posix)
find_program(QUILLMERE_MINGW_WINDRES x86_64-w64-mingw32-windres)
if(CMAKE_GENERATOR MATCHES "Ninja")
  set(quillmere_ninja "${CMAKE_MAKE_PROGRAM}")
else()
  find_program(quillmere_ninja NAMES ninja ninja-build)
endif()

# The third-party headers the program includes that sit in the system's own include folders,
# each found where this build found its library; LibRaw's are a folder of their own.
set(headers "")
foreach(header tiff.h tiffio.h tiffconf.h tiffvers.h jpeglib.h jerror.h jmorecfg.h jconfig.h
               turbojpeg.h png.h pngconf.h pnglibconf.h lcms2.h qrencode.h)
  string(MAKE_C_IDENTIFIER "${header}" id)
  find_file(QUILLMERE_WINDOWS_HEADER_${id} ${header}
    HINTS ${TIFF_INCLUDE_DIRS} ${PNG_INCLUDE_DIRS} ${LibRaw_INCLUDE_DIR}
          ${QRencode__QRencode_INCLUDE_DIR} ${lcms2__lcms2_INCLUDE_DIR})
  mark_as_advanced(QUILLMERE_WINDOWS_HEADER_${id})
  if(QUILLMERE_WINDOWS_HEADER_${id})
    list(APPEND headers "${QUILLMERE_WINDOWS_HEADER_${id}}")
  endif()
endforeach()
list(APPEND headers "${LibRaw_INCLUDE_DIR}/libraw")
string(REPLACE ";" "|" headers "${headers}")

set(quillmere_windows_syntax_command
  ${CMAKE_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR} -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
  -DCOMPILER=${QUILLMERE_MINGW_CXX} -DNINJA=${quillmere_ninja} -DHEADER_FILES=${headers}
  -DRC_COMPILER=${QUILLMERE_MINGW_WINDRES} -DVERSION=${PROJECT_VERSION}
  -P ${PROJECT_SOURCE_DIR}/cmake/windows-syntax-check.cmake)
add_custom_target(windows_syntax_check COMMAND ${quillmere_windows_syntax_command} VERBATIM)
