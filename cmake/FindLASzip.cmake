# SPDX-License-Identifier: Apache-2.0
#
# Finds the LASzip library with its C interface; defines the target LASzip::LASzip.

find_path(LASzip_INCLUDE_DIR laszip/laszip_api.h)
find_library(LASzip_LIBRARY laszip)
mark_as_advanced(LASzip_INCLUDE_DIR LASzip_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
    LASzip
    REQUIRED_VARS LASzip_LIBRARY LASzip_INCLUDE_DIR
    REASON_FAILURE_MESSAGE "scripts/setup.sh installs it")

if(LASzip_FOUND AND NOT TARGET LASzip::LASzip)
    add_library(LASzip::LASzip UNKNOWN IMPORTED)
    set_target_properties(
        LASzip::LASzip PROPERTIES IMPORTED_LOCATION "${LASzip_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
                                                                        "${LASzip_INCLUDE_DIR}")
endif()
