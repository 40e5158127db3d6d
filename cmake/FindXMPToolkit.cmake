# SPDX-License-Identifier: Apache-2.0
# Finds the XMP Toolkit SDK's sources and makes its core one static, position-independent target, XMPToolkit::XMPCore.
#
# The small shim beside this file is compiled with it; METADATA_UTILS_XMP_SHIM says so. A build over another SDK goes
# without: what the toolkit renames is then found before an edit, and the edit refused.
#
# XMPToolkit_ROOT  where the SDK stands; by default where cmake/get-xmp-toolkit.sh puts it.

set(_xmp_default ${CMAKE_CURRENT_LIST_DIR}/../.deps/xmp-toolkit/exempi-2.6.3)
find_path(XMPToolkit_SOURCE_DIR public/include/XMP.hpp
    HINTS ${XMPToolkit_ROOT} ENV XMPToolkit_ROOT ${_xmp_default}
    NO_CMAKE_FIND_ROOT_PATH NO_DEFAULT_PATH)
find_package(EXPAT)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(XMPToolkit
    REQUIRED_VARS XMPToolkit_SOURCE_DIR EXPAT_FOUND
    REASON_FAILURE_MESSAGE "run cmake/get-xmp-toolkit.sh, or give -DXMPToolkit_ROOT=...")

if(XMPToolkit_FOUND AND NOT TARGET XMPToolkit::XMPCore)
    file(GLOB _xmp_core ${XMPToolkit_SOURCE_DIR}/XMPCore/source/*.cpp)
    add_library(xmp_core STATIC EXCLUDE_FROM_ALL
        ${_xmp_core}
        ${CMAKE_CURRENT_LIST_DIR}/XMPCoreShim.cpp
        ${CMAKE_CURRENT_LIST_DIR}/XMPCoreLocks.cpp
        ${XMPToolkit_SOURCE_DIR}/source/UnicodeConversions.cpp
        ${XMPToolkit_SOURCE_DIR}/source/XML_Node.cpp
        ${XMPToolkit_SOURCE_DIR}/third-party/zuid/interfaces/MD5.cpp)
    target_include_directories(xmp_core
        PRIVATE ${XMPToolkit_SOURCE_DIR}
                ${XMPToolkit_SOURCE_DIR}/XMPCore/source
                ${XMPToolkit_SOURCE_DIR}/source
                ${XMPToolkit_SOURCE_DIR}/public/include)
    target_include_directories(xmp_core SYSTEM
        INTERFACE ${XMPToolkit_SOURCE_DIR}/public/include)
    target_compile_definitions(xmp_core
        PRIVATE HAVE_EXPAT_CONFIG_H=1 BUILDING_XMPCORE_LIB=1 UsePThreadLock=1
        PUBLIC UNIX_ENV=1 XMP_StaticBuild=1 ENABLE_CPP_DOM_MODEL=0
        INTERFACE METADATA_UTILS_XMP_SHIM=1)
    # The shim has these two in their place.
    set_source_files_properties(${XMPToolkit_SOURCE_DIR}/XMPCore/source/XMPCore_Impl.cpp PROPERTIES COMPILE_DEFINITIONS
        "NormalizeLangArray=XMPCoreNormalizeLangArray;DetectAltText=XMPCoreDetectAltText")
    # The SDK is not held to our warnings or to newer language rules.
    target_compile_options(xmp_core PRIVATE -w)
    set_target_properties(xmp_core PROPERTIES
        POSITION_INDEPENDENT_CODE ON CXX_STANDARD 17 CXX_VISIBILITY_PRESET default)
    target_link_libraries(xmp_core PUBLIC EXPAT::EXPAT)
    add_library(XMPToolkit::XMPCore ALIAS xmp_core)
endif()
