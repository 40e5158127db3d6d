# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` gives: the shared and the static library, the public headers below one prefix
# (<metadata_utils/MotionPhotoEdit.h>), a CMake package, a pkg-config file, licences and documents.
include(CMakePackageConfigHelpers)

set(_headers ${CMAKE_INSTALL_INCLUDEDIR}/metadata_utils)
set(_package ${CMAKE_INSTALL_LIBDIR}/cmake/metadata_utils)
set(_generated ${PROJECT_BINARY_DIR}/install)

# Everything a program needs besides the system's libraries, in one archive.
add_library(metadata_utils_archive STATIC
    $<TARGET_OBJECTS:metadata_utils_objects> $<TARGET_OBJECTS:boxes> $<TARGET_OBJECTS:xmp_core>)
foreach(part hbox media_extractor)
    get_target_property(_type ${part} TYPE)
    get_target_property(_libraries ${part} INTERFACE_LINK_LIBRARIES)
    if(_type STREQUAL "STATIC_LIBRARY") # on a device it is the platform's own
        target_sources(metadata_utils_archive PRIVATE $<TARGET_OBJECTS:${part}>)
    endif()
    list(FILTER _libraries INCLUDE REGEX "^/") # the platform's, none of ours
    target_link_libraries(metadata_utils_archive INTERFACE ${_libraries})
endforeach()
set_target_properties(metadata_utils_archive PROPERTIES OUTPUT_NAME metadata_utils EXPORT_NAME metadata_utils_static)
target_include_directories(metadata_utils_archive INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(metadata_utils_archive INTERFACE EXPAT::EXPAT Android::log)
target_compile_features(metadata_utils_archive INTERFACE cxx_std_20)

install(TARGETS metadata_utils metadata_utils_archive EXPORT metadata_utils
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

# Headers include each other by name. Those of io/ stand a folder deeper than what they include.
install(DIRECTORY metadata_utils/include/ DESTINATION ${_headers} FILES_MATCHING PATTERN "*.h")
foreach(header ImageMetaReader ImageMetaWriter JPEGMetaReader JPEGMetaWriter HEIFMetaReader HEIFMetaWriter)
    set(_source ${PROJECT_SOURCE_DIR}/metadata_utils/io/${header}.h)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_source})
    file(READ ${_source} _text)
    string(REGEX MATCHALL "#include \"[^\"]+\"" _includes "${_text}")
    foreach(_include IN LISTS _includes)
        string(REGEX REPLACE "#include \"(.*)\"" "\\1" _name "${_include}")
        if(EXISTS ${PROJECT_SOURCE_DIR}/metadata_utils/include/${_name})
            string(REPLACE "${_include}" "#include \"../${_name}\"" _text "${_text}")
        endif()
    endforeach()
    file(WRITE ${_generated}/io/${header}.h "${_text}")
endforeach()
# The images' structure is answered in hbox's types.
install(DIRECTORY ${_generated}/io DESTINATION ${_headers})
install(FILES platform/hbox/include/hbox.h platform/hbox/include/hboxd.h platform/hbox/include/hboxm.h
    DESTINATION ${_headers})

configure_file(cmake/version.h.in ${_generated}/version.h @ONLY)
install(FILES ${_generated}/version.h DESTINATION ${_headers})
configure_package_config_file(cmake/metadata_utilsConfig.cmake.in ${_generated}/metadata_utilsConfig.cmake
    INSTALL_DESTINATION ${_package})
write_basic_package_version_file(${_generated}/metadata_utilsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${_generated}/metadata_utilsConfig.cmake ${_generated}/metadata_utilsConfigVersion.cmake
    cmake/FindAndroidLibs.cmake DESTINATION ${_package})
install(EXPORT metadata_utils NAMESPACE metadata_utils:: DESTINATION ${_package} FILE metadata_utilsTargets.cmake)

# The prefix is known for sure when something is installed: it may be given there.
set(prefix @prefix@)
configure_file(cmake/metadata_utils.pc.in ${_generated}/metadata_utils.pc.in @ONLY)
install(CODE "set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
configure_file(\"${_generated}/metadata_utils.pc.in\" \"${_generated}/metadata_utils.pc\" @ONLY)")
install(FILES ${_generated}/metadata_utils.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES LICENSE NOTICE README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
include(cmake/Reference.cmake)
