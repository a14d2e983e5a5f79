# SPDX-License-Identifier: Apache-2.0
# add_component_test(NAME SOURCES ... [LINK target ...] [TIMEOUT seconds])
#
# One GoogleTest program and one ctest entry. Tests start what they need in temporary folders of
# their own, so any number may run at once; PROGRAMS says where the built programs stand.
enable_testing()
find_package(GTest REQUIRED)

function(add_component_test NAME)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${NAME} ${ARG_SOURCES})
    target_link_libraries(${NAME} PRIVATE ${ARG_LINK} project_warnings GTest::gmock
                          GTest::gtest_main)
    target_include_directories(${NAME} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_compile_definitions(${NAME} PRIVATE
                               PROGRAMS="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
                               SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
    set_target_properties(${NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_test(NAME ${NAME} COMMAND ${NAME})
    set_tests_properties(${NAME} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
