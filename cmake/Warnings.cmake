# SPDX-License-Identifier: MIT
# Every target of ours links this: warnings are errors everywhere.
add_library(quillmere_warnings INTERFACE)
target_compile_options(quillmere_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
  -Wunused -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion -Wformat=2
  -Wimplicit-fallthrough -Werror)
