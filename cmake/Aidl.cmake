# SPDX-License-Identifier: Apache-2.0
# add_aidl_library(NAME ROOT folder FILES a/b/IFoo.aidl ... [IMPORTS folder ...] [LINK target ...])
#
# A static library of the C++ that the platform's generator makes of AIDL files at build time.
# Generated sources stand in <build>/aidl/NAME and are compiled without our warning flags, in one
# go: their headers cost more than they do.
find_program(AIDL_CPP aidl-cpp REQUIRED)

function(add_aidl_library NAME)
    cmake_parse_arguments(ARG "" "ROOT" "FILES;IMPORTS;LINK" ${ARGN})
    set(OUT ${CMAKE_BINARY_DIR}/aidl/${NAME})
    cmake_path(ABSOLUTE_PATH ARG_ROOT BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
    set(INCLUDES -I${ARG_ROOT})
    foreach(FOLDER ${ARG_IMPORTS})
        list(APPEND INCLUDES -I${FOLDER})
    endforeach()
    set(SOURCES)
    foreach(FILE ${ARG_FILES})
        string(REGEX REPLACE "\\.aidl$" ".cpp" CPP ${FILE})
        get_filename_component(FOLDER ${OUT}/src/${CPP} DIRECTORY)
        file(MAKE_DIRECTORY ${FOLDER} ${OUT}/include)
        add_custom_command(
            OUTPUT ${OUT}/src/${CPP}
            COMMAND ${AIDL_CPP} --structured --ninja -d ${OUT}/src/${CPP}.d ${INCLUDES}
                    ${ARG_ROOT}/${FILE} ${OUT}/include ${OUT}/src/${CPP}
            DEPENDS ${ARG_ROOT}/${FILE}
            DEPFILE ${OUT}/src/${CPP}.d
            COMMENT "AIDL ${FILE}"
            VERBATIM)
        list(APPEND SOURCES ${OUT}/src/${CPP})
    endforeach()
    add_custom_target(${NAME}_generated DEPENDS ${SOURCES})
    add_library(${NAME} STATIC ${SOURCES})
    add_dependencies(${NAME} ${NAME}_generated)
    target_include_directories(${NAME} SYSTEM PUBLIC ${OUT}/include)
    target_compile_options(${NAME} PRIVATE -w)
    set_target_properties(${NAME} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
    target_link_libraries(${NAME} PUBLIC ${ARG_LINK})
    set_property(GLOBAL APPEND PROPERTY AIDL_LIBRARIES ${NAME})
endfunction()
