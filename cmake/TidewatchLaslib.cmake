# SPDX-License-Identifier: Apache-2.0
#
# Finds a LASlib that the LAS exporter can be built on.

include_guard(GLOBAL)
include(CheckCXXSourceCompiles)

# LAS_TOOLS_VERSION of the oldest release to accept, which is the one that the exporter's files were compared with.
# Releases before August 2017 cannot compress the point formats of LAS 1.4, and leave bytes of their records
# uninitialised; those in between have not been tried. Rejecting one costs nothing: laslib/ writes the same files.
set(TIDEWATCH_OLDEST_LASLIB 221128)

# tidewatch_find_laslib(VARIABLE): the target of a LASlib that can become part of a dynamic library, or an empty text.
# Sets TIDEWATCH_LASLIB_HALTS, too.
function(tidewatch_find_laslib result)
    set(${result} "" PARENT_SCOPE)
    # Checked again each time: cached answers would outlive the LASlib that they are about.
    unset(TIDEWATCH_LASLIB_IS_RECENT CACHE)
    unset(TIDEWATCH_LASLIB_IS_SUITABLE CACHE)
    unset(TIDEWATCH_LASLIB_HALTS CACHE)
    find_package(LASlib QUIET)
    set(library "")
    foreach(candidate IN ITEMS LASlib LAStools::LASlib LASlib::LASlib)
        if(NOT library AND TARGET ${candidate})
            set(library ${candidate})
        endif()
    endforeach()
    if(NOT library)
        return()
    endif()
    # Newer packages define the library under two names, and the checks below do not know the second.
    get_target_property(aliased ${library} ALIASED_TARGET)
    if(aliased)
        set(library ${aliased})
    endif()
    # A shared library would mix its symbols with those of the LASzip library, which the readers load.
    get_target_property(type ${library} TYPE)
    if(NOT type STREQUAL "STATIC_LIBRARY")
        message(STATUS "LASlib in ${LASlib_DIR} is passed over: it is not a static library")
        return()
    endif()
    set(CMAKE_REQUIRED_LIBRARIES ${library})
    set(CMAKE_REQUIRED_FLAGS "-std=c++20 -fPIC")
    check_cxx_source_compiles(
        "#include <laswriter.hpp>
         #if LAS_TOOLS_VERSION < ${TIDEWATCH_OLDEST_LASLIB}
         #error
         #endif
         int main() {}"
        TIDEWATCH_LASLIB_IS_RECENT)
    if(NOT TIDEWATCH_LASLIB_IS_RECENT)
        message(STATUS "LASlib in ${LASlib_DIR} is passed over: its headers do not say that it is release "
                       "${TIDEWATCH_OLDEST_LASLIB} or a later one")
        return()
    endif()
    set(opens_a_writer
        "#include <laswriter.hpp>
         LASwriter* write(const LASheader* header) { LASwriteOpener opener; return opener.open(header); }")
    set(CMAKE_REQUIRED_LINK_OPTIONS -shared)
    check_cxx_source_compiles("${opens_a_writer}" TIDEWATCH_LASLIB_IS_SUITABLE)
    if(NOT TIDEWATCH_LASLIB_IS_SUITABLE)
        message(STATUS "LASlib in ${LASlib_DIR} is passed over: it cannot become part of a dynamic library (is it built "
                       "with CMAKE_POSITION_INDEPENDENT_CODE?)")
        return()
    endif()
    # Newer releases end the process on an error unless told otherwise.
    unset(CMAKE_REQUIRED_LINK_OPTIONS)
    check_cxx_source_compiles(
        "#include <laswriter.hpp>
         #if __has_include(<lasmessage.hpp>)
         #include <lasmessage.hpp>
         #endif
         int main() { halt_on_error(false); }"
        TIDEWATCH_LASLIB_HALTS)
    set(${result} ${library} PARENT_SCOPE)
endfunction()
