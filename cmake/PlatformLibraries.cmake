# SPDX-License-Identifier: Apache-2.0
# The platform's libraries as Debian ships them (utils, log, cutils, base), as one target.
#
# Their include folder also holds the platform's own binder headers when the package for the
# device check is installed. A header of ours that is missing would then be found there silently,
# so the build sees a folder of links with everything but those.
set(PLATFORM_ROOT_INCLUDE /usr/include/android)
set(PLATFORM_INCLUDE ${CMAKE_BINARY_DIR}/platform/include)
if(NOT EXISTS ${PLATFORM_ROOT_INCLUDE}/utils/RefBase.h)
    message(FATAL_ERROR "The platform's headers are missing: run ./dev setup, or install "
                        "android-libutils-dev android-liblog-dev android-libcutils-dev "
                        "android-libbase-dev")
endif()
file(MAKE_DIRECTORY ${PLATFORM_INCLUDE})
foreach(FOLDER utils log cutils android android-base system backtrace private)
    if(EXISTS ${PLATFORM_ROOT_INCLUDE}/${FOLDER})
        file(CREATE_LINK ${PLATFORM_ROOT_INCLUDE}/${FOLDER} ${PLATFORM_INCLUDE}/${FOLDER} SYMBOLIC)
    endif()
endforeach()

find_library(PLATFORM_LIBUTILS utils PATH_SUFFIXES android REQUIRED)
get_filename_component(PLATFORM_LIBDIR ${PLATFORM_LIBUTILS} DIRECTORY)
find_library(PLATFORM_LIBLOG log PATHS ${PLATFORM_LIBDIR} NO_DEFAULT_PATH REQUIRED)
find_library(PLATFORM_LIBCUTILS cutils PATHS ${PLATFORM_LIBDIR} NO_DEFAULT_PATH REQUIRED)
find_library(PLATFORM_LIBBASE base PATHS ${PLATFORM_LIBDIR} NO_DEFAULT_PATH REQUIRED)
find_package(Threads REQUIRED)

add_library(platform_base INTERFACE)
# Stands before either folder of the platform's headers.
set(PLATFORM_GCC_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/gcc)
target_include_directories(platform_base SYSTEM INTERFACE ${PLATFORM_GCC_INCLUDE}
                           ${PLATFORM_INCLUDE})
target_link_libraries(platform_base INTERFACE ${PLATFORM_LIBUTILS} ${PLATFORM_LIBCUTILS}
                      ${PLATFORM_LIBLOG} ${PLATFORM_LIBBASE} Threads::Threads)
set(CMAKE_BUILD_RPATH ${PLATFORM_LIBDIR})

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
