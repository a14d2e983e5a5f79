# SPDX-License-Identifier: Apache-2.0
# VRFOCUS_PRECOMPILE has all of the project's own sources share two precompiled headers, one for
# tests and one for the rest. That hides missing includes; builds without it show them.
option(VRFOCUS_PRECOMPILE "Precompile the headers that most sources include" OFF)

# add_precompiled_headers(NAME HEADERS ... LINK target ...): for targets with the same options.
function(add_precompiled_headers NAME)
    cmake_parse_arguments(ARG "" "" "HEADERS;LINK" ${ARGN})
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/${NAME}.cpp CONTENT "")
    add_library(${NAME} OBJECT ${CMAKE_BINARY_DIR}/${NAME}.cpp)
    target_link_libraries(${NAME} PRIVATE project_warnings ${ARG_LINK})
    # Without the time of its making, so that the same header is the same to ccache.
    target_compile_options(${NAME} PRIVATE
                           $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
    target_precompile_headers(${NAME} PRIVATE ${ARG_HEADERS})
endfunction()

# use_precompiled_headers(NAME FOLDER): in every target of this folder and those below whose code is
# the project's own and that has none yet.
function(use_precompiled_headers NAME FOLDER)
    get_property(TARGETS DIRECTORY ${FOLDER} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(TARGET ${TARGETS})
        get_target_property(TYPE ${TARGET} TYPE)
        get_target_property(LINKED ${TARGET} LINK_LIBRARIES)
        get_target_property(HEADERS ${TARGET} PRECOMPILE_HEADERS)
        get_target_property(OTHER ${TARGET} PRECOMPILE_HEADERS_REUSE_FROM)
        if(TYPE MATCHES "EXECUTABLE|STATIC_LIBRARY" AND "project_warnings" IN_LIST LINKED
           AND NOT HEADERS AND NOT OTHER)
            target_precompile_headers(${TARGET} REUSE_FROM ${NAME})
        endif()
    endforeach()
    get_property(FOLDERS DIRECTORY ${FOLDER} PROPERTY SUBDIRECTORIES)
    foreach(EACH ${FOLDERS})
        use_precompiled_headers(${NAME} ${EACH})
    endforeach()
endfunction()
