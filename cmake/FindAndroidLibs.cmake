# SPDX-License-Identifier: Apache-2.0
# The platform's log, on Android or as Debian packages it (android-liblog-dev): headers below <prefix>/include/android, the
# library in <prefix>/lib/<architecture>/android, which no linker or loader searches on its own. Also finds it in a sysroot
# given by CMAKE_SYSROOT or CMAKE_FIND_ROOT_PATH.
#
# Defines AndroidLibs_FOUND, AndroidLibs_RUNTIME_DIR (where the loader finds the libraries) and the target
#   Android::log    __android_log_print and its family

include(FindPackageHandleStandardArgs)

find_path(AndroidLibs_INCLUDE_DIR NAMES android/log.h PATH_SUFFIXES android)
find_library(AndroidLibs_LOG_LIBRARY NAMES log PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
mark_as_advanced(AndroidLibs_INCLUDE_DIR AndroidLibs_LOG_LIBRARY)

find_package_handle_standard_args(AndroidLibs
    REQUIRED_VARS AndroidLibs_LOG_LIBRARY AndroidLibs_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "install android-liblog-dev")

# Where the loader finds the folder of a library: without the sysroot in front.
function(_AndroidLibs_runtime_dir library result)
    get_filename_component(dir "${library}" DIRECTORY)
    foreach(root IN LISTS CMAKE_SYSROOT CMAKE_FIND_ROOT_PATH)
        get_filename_component(root "${root}" ABSOLUTE)
        cmake_path(IS_PREFIX root "${dir}" NORMALIZE below)
        if(below AND NOT root STREQUAL "/")
            cmake_path(RELATIVE_PATH dir BASE_DIRECTORY "${root}")
            set(dir "/${dir}")
            break()
        endif()
    endforeach()
    set(${result} "${dir}" PARENT_SCOPE)
endfunction()

if(AndroidLibs_FOUND)
    _AndroidLibs_runtime_dir("${AndroidLibs_LOG_LIBRARY}" AndroidLibs_RUNTIME_DIR)
endif()
if(AndroidLibs_FOUND AND NOT TARGET Android::log)
    get_filename_component(_android_link_dir "${AndroidLibs_LOG_LIBRARY}" DIRECTORY)
    add_library(Android::log SHARED IMPORTED)
    # In the linker driver's own words, which other build systems that read this package understand as well.
    # rpath-link: the library may need further ones of the same folder, which the linker wants to see.
    set_target_properties(Android::log PROPERTIES
        IMPORTED_LOCATION "${AndroidLibs_LOG_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${AndroidLibs_INCLUDE_DIR}")
    # On Android itself the library stands where every loader looks.
    if(AndroidLibs_RUNTIME_DIR MATCHES "/android$")
        set_target_properties(Android::log PROPERTIES
            INTERFACE_LINK_OPTIONS "-Wl,-rpath,${AndroidLibs_RUNTIME_DIR};-Wl,-rpath-link,${_android_link_dir}")
    endif()
endif()
