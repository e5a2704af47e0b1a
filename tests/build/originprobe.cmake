# SPDX-License-Identifier: MIT
# Given to a configure as CMAKE_PROJECT_QuillmereLive_INCLUDE by shippeddefaults.cmake: adds,
# once the whole project is read, a tiny program on the service client as that configure built
# it. It sets no option, so the build is otherwise the project's own.
set(quillmere_originprobe_source ${CMAKE_CURRENT_LIST_DIR}/originprobe.cpp)
function(quillmere_add_origin_probe)
  add_executable(quillmere_originprobe ${quillmere_originprobe_source})
  target_link_libraries(quillmere_originprobe PRIVATE quillmere_core quillmere_warnings)
endfunction()
cmake_language(DEFER CALL quillmere_add_origin_probe)
