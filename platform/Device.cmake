# SPDX-License-Identifier: Apache-2.0
# The device's libraries and headers as the platform's build leaves them in a sysroot.

# mu_device_library(target library... HEADER header): an interface target over the libraries and the folder of the header.
function(mu_device_library target)
    cmake_parse_arguments(ARG "" "HEADER" "LIBRARIES" ${ARGN})
    add_library(${target} INTERFACE)
    find_path(${target}_INCLUDE_DIR NAMES ${ARG_HEADER} REQUIRED)
    target_include_directories(${target} SYSTEM INTERFACE $<BUILD_INTERFACE:${${target}_INCLUDE_DIR}>)
    foreach(library IN LISTS ARG_LIBRARIES)
        find_library(${library}_LIBRARY NAMES ${library} REQUIRED)
        target_link_libraries(${target} INTERFACE ${${library}_LIBRARY})
    endforeach()
endfunction()

mu_device_library(media_extractor HEADER media/stagefright/NuMediaExtractor.h
    LIBRARIES stagefright stagefright_foundation utils)
mu_device_library(hbox HEADER hboxd.h LIBRARIES hbox)
