# SPDX-License-Identifier: Apache-2.0
# The reference of the public headers, made by Doxygen, for the install.
find_package(Doxygen QUIET)
option(METADATA_UTILS_REFERENCE "Make the reference of the headers" ${DOXYGEN_FOUND})
option(METADATA_UTILS_REFERENCE_STRICT "A warning fails it; which ones there are depends on Doxygen's version" OFF)
if(NOT METADATA_UTILS_REFERENCE)
    return()
endif()
find_package(Doxygen REQUIRED)

file(GLOB _headers CONFIGURE_DEPENDS metadata_utils/include/*.h metadata_utils/io/*Meta[RW]*.h platform/hbox/include/*.h)
list(APPEND _headers ${PROJECT_SOURCE_DIR}/docs/reference.md)
list(JOIN _headers " " MU_REFERENCE_INPUT)
set(MU_REFERENCE_OUTPUT ${PROJECT_BINARY_DIR}/reference)
set(MU_REFERENCE_WARNINGS NO)
if(METADATA_UTILS_REFERENCE_STRICT)
    set(MU_REFERENCE_WARNINGS FAIL_ON_WARNINGS)
endif()
configure_file(docs/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
add_custom_command(OUTPUT ${MU_REFERENCE_OUTPUT}/html/index.html
    COMMAND ${CMAKE_COMMAND} -E make_directory ${MU_REFERENCE_OUTPUT}
    COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/Doxyfile
    DEPENDS ${_headers} ${PROJECT_BINARY_DIR}/Doxyfile ${PROJECT_SOURCE_DIR}/docs/doxygen-c.sed VERBATIM)
add_custom_target(reference ALL DEPENDS ${MU_REFERENCE_OUTPUT}/html/index.html)
install(DIRECTORY ${MU_REFERENCE_OUTPUT}/html DESTINATION ${CMAKE_INSTALL_DOCDIR})
