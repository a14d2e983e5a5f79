# SPDX-License-Identifier: Apache-2.0
# Our own code is compiled with these; generated code is not (the generator's output is not clean).
# GCC does not know Clang's thread-safety attributes; a misspelt one is Clang's to find.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE -Wall -Wextra -Werror -Wformat=2 -Wno-psabi
                       $<$<CXX_COMPILER_ID:GNU>:-Wno-attributes>)
