# SPDX-License-Identifier: MIT
# Every target of ours links this: warnings are errors everywhere, in each compiler's terms.
add_library(quillmere_warnings INTERFACE)
if(MSVC)
  # /permissive- holds cl to the standard the other compilers are held to; /utf-8 reads the
  # sources (Spanish texts) as what they are. Warnings from the libraries' headers are theirs.
  target_compile_options(quillmere_warnings INTERFACE
    /W4 /WX /permissive- /utf-8 /Zc:__cplusplus /external:anglebrackets /external:W0)
else()
  target_compile_options(quillmere_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Wunused -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion -Wformat=2
    -Wimplicit-fallthrough -Werror)
endif()
