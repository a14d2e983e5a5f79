# SPDX-License-Identifier: Apache-2.0
# Our own code is compiled with these; generated code is not (the generator's output is not clean).
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE -Wall -Wextra -Werror -Wformat=2 -Wno-psabi)
