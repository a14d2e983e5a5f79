# SPDX-License-Identifier: Apache-2.0
# add_component_test(NAME SOURCES ... [LINK target ...] [TIMEOUT seconds])
#
# One GoogleTest program and one ctest entry. Tests start what they need in temporary folders of
# their own, so any number may run at once; PROGRAMS says where the built programs stand.
#
# A test's own sources are compiled without optimisation: assertions are most of their code, and
# optimising that takes longer than running it.
enable_testing()
find_package(GTest REQUIRED)

add_library(test_options INTERFACE)
target_compile_options(test_options INTERFACE $<$<CONFIG:Debug>:-O0>)
if(VRFOCUS_PRECOMPILE)
    add_precompiled_headers(test_headers
        HEADERS <gmock/gmock.h> <gtest/gtest.h>
                <algorithm> <array> <chrono> <condition_variable> <filesystem> <fstream>
                <functional> <future> <map> <memory> <mutex> <optional> <random> <set> <sstream>
                <string> <thread> <vector>
        LINK test_options GTest::gmock)
endif()

function(add_component_test NAME)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${NAME} ${ARG_SOURCES})
    target_link_libraries(${NAME} PRIVATE ${ARG_LINK} project_warnings test_options GTest::gmock
                          GTest::gtest_main)
    if(VRFOCUS_PRECOMPILE)
        target_precompile_headers(${NAME} REUSE_FROM test_headers)
    endif()
    target_include_directories(${NAME} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_compile_definitions(${NAME} PRIVATE
                               PROGRAMS="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
                               SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
    set_target_properties(${NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_test(NAME ${NAME} COMMAND ${NAME})
    # Those that may take longest begin, so that none of them runs alone in the end.
    set_tests_properties(${NAME} PROPERTIES TIMEOUT ${ARG_TIMEOUT} COST ${ARG_TIMEOUT})
endfunction()
