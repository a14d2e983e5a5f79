# SPDX-License-Identifier: Apache-2.0
# add_component_test(NAME SOURCES ... [LINK target ...] [TIMEOUT seconds])
#
# One GoogleTest program and one ctest entry. Tests start what they need in temporary folders of
# their own, so any number may run at once; PROGRAMS says where the built programs stand.
#
# A test's own sources are compiled without optimisation: assertions are most of their code, and
# optimising that takes longer than running it. VRFOCUS_PRECOMPILE_TESTS has them share one
# precompiled header, which hides missing includes; builds without it show them.
enable_testing()
find_package(GTest REQUIRED)

option(VRFOCUS_PRECOMPILE_TESTS "Precompile the headers that most tests include" OFF)
add_library(test_options INTERFACE)
target_compile_options(test_options INTERFACE $<$<CONFIG:Debug>:-O0>)
if(VRFOCUS_PRECOMPILE_TESTS)
    # Without the time of its making, so that the same header is the same to ccache.
    target_compile_options(test_options INTERFACE
                           $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/test_headers.cpp CONTENT "")
    add_library(test_headers OBJECT ${CMAKE_BINARY_DIR}/test_headers.cpp)
    target_link_libraries(test_headers PRIVATE project_warnings test_options GTest::gmock)
    target_precompile_headers(test_headers PRIVATE
                              <gmock/gmock.h> <gtest/gtest.h>
                              <algorithm> <array> <chrono> <condition_variable> <filesystem>
                              <fstream> <functional> <future> <map> <memory> <mutex> <optional>
                              <random> <set> <sstream> <string> <thread> <vector>)
endif()

function(add_component_test NAME)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${NAME} ${ARG_SOURCES})
    target_link_libraries(${NAME} PRIVATE ${ARG_LINK} project_warnings test_options GTest::gmock
                          GTest::gtest_main)
    if(VRFOCUS_PRECOMPILE_TESTS)
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
