# SPDX-License-Identifier: Apache-2.0
#
# The Point Cloud Library, which may be absent: the target tidewatch-pcl, which then also defines TIDEWATCH_HAS_PCL.
# Its own package file is not used: that searches for everything that any part of PCL needs, including graphics, and
# stops if one of these is incomplete.

include_guard(GLOBAL)

find_package(Eigen3 QUIET NO_MODULE)
find_path(TIDEWATCH_PCL_INCLUDE_DIR pcl/filters/voxel_grid.h PATH_SUFFIXES pcl-1.15 pcl-1.14 pcl-1.13 pcl-1.12)
foreach(part IN ITEMS common io filters)
    find_library(TIDEWATCH_PCL_${part} pcl_${part})
    mark_as_advanced(TIDEWATCH_PCL_${part})
endforeach()
mark_as_advanced(TIDEWATCH_PCL_INCLUDE_DIR)

if(TARGET Eigen3::Eigen
   AND TIDEWATCH_PCL_INCLUDE_DIR
   AND TIDEWATCH_PCL_common
   AND TIDEWATCH_PCL_io
   AND TIDEWATCH_PCL_filters)
    message(STATUS "PCL for comparisons: ${TIDEWATCH_PCL_INCLUDE_DIR}")
    add_library(tidewatch-pcl INTERFACE)
    target_compile_definitions(tidewatch-pcl INTERFACE TIDEWATCH_HAS_PCL)
    target_include_directories(tidewatch-pcl SYSTEM INTERFACE ${TIDEWATCH_PCL_INCLUDE_DIR})
    target_link_libraries(tidewatch-pcl INTERFACE ${TIDEWATCH_PCL_filters} ${TIDEWATCH_PCL_io} ${TIDEWATCH_PCL_common}
                                                  Eigen3::Eigen)
else()
    message(STATUS "PCL for comparisons: not found (bench/setup.sh installs it); they are left out")
endif()
