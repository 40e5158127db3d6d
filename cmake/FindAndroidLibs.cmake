# The platform's system libraries as Debian packages them (android-liblog-dev, android-libutils-dev): headers below
# <prefix>/include/android, libraries in <prefix>/lib/<architecture>/android, which no linker or loader searches on its
# own. Also finds them in a sysroot given by CMAKE_SYSROOT or CMAKE_FIND_ROOT_PATH.
#
# Defines AndroidLibs_FOUND and the targets
#   Android::log    __android_log_print and its family
#   Android::utils  RefBase, sp, status codes

include(FindPackageHandleStandardArgs)

find_path(AndroidLibs_INCLUDE_DIR NAMES utils/RefBase.h PATH_SUFFIXES android)
find_library(AndroidLibs_LOG_LIBRARY NAMES log PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
find_library(AndroidLibs_UTILS_LIBRARY NAMES utils PATH_SUFFIXES android ${CMAKE_LIBRARY_ARCHITECTURE}/android)
mark_as_advanced(AndroidLibs_INCLUDE_DIR AndroidLibs_LOG_LIBRARY AndroidLibs_UTILS_LIBRARY)

find_package_handle_standard_args(AndroidLibs
    REQUIRED_VARS AndroidLibs_LOG_LIBRARY AndroidLibs_UTILS_LIBRARY AndroidLibs_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "install android-liblog-dev and android-libutils-dev")

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

function(_AndroidLibs_import name library)
    if(TARGET Android::${name})
        return()
    endif()
    get_filename_component(link_dir "${library}" DIRECTORY)
    _AndroidLibs_runtime_dir("${library}" runtime_dir)
    add_library(Android::${name} SHARED IMPORTED)
    # rpath-link: these libraries need further ones of the same folder, which the linker wants to see.
    set_target_properties(Android::${name} PROPERTIES
        IMPORTED_LOCATION "${library}"
        INTERFACE_INCLUDE_DIRECTORIES "${AndroidLibs_INCLUDE_DIR}"
        INTERFACE_LINK_OPTIONS "LINKER:-rpath,${runtime_dir};LINKER:-rpath-link,${link_dir}")
endfunction()

if(AndroidLibs_FOUND)
    _AndroidLibs_import(log "${AndroidLibs_LOG_LIBRARY}")
    _AndroidLibs_import(utils "${AndroidLibs_UTILS_LIBRARY}")
    set_property(TARGET Android::utils PROPERTY INTERFACE_LINK_LIBRARIES Android::log)
endif()
