# SPDX-License-Identifier: Apache-2.0
# VRFOCUS_SANITIZE: empty, "address" (address and undefined behaviour) or "thread".
set(VRFOCUS_SANITIZE "" CACHE STRING "Sanitizers to build with: address or thread")
if(VRFOCUS_SANITIZE STREQUAL "address")
    # Compiled whole with the same flags: the vptr check needs type information that the
    # platform's libraries, built without it, do not give.
    add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr
                        -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(VRFOCUS_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(VRFOCUS_SANITIZE)
    message(FATAL_ERROR "VRFOCUS_SANITIZE is '${VRFOCUS_SANITIZE}': want address or thread")
endif()
