# SPDX-License-Identifier: Apache-2.0
#
# Configures a project that looks for LASlib, again and again in one build folder, while packages of several releases
# take each other's place.
#   cmake -D SOURCE_DIR=... -D GENERATOR=... -D MAKE_PROGRAM=... -D COMPILER=... -P LaslibFindingTest.cmake

cmake_minimum_required(VERSION 3.25)

# A build folder may be moved to where it can only be tested.
foreach(program IN ITEMS "${MAKE_PROGRAM}" "${COMPILER}")
    if(NOT EXISTS "${program}")
        message(STATUS "SKIPPED: '${program}', with which the project was built, is not there")
        return()
    endif()
endforeach()

execute_process(
    COMMAND mktemp -d -t tidewatch-test-XXXXXX
    OUTPUT_VARIABLE folder
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

# The project gives the result of its search as text, in a file.
file(
    CONFIGURE
    OUTPUT "${folder}/project/CMakeLists.txt"
    CONTENT
        [[
cmake_minimum_required(VERSION 3.25)
project(Finding LANGUAGES CXX)
include("@SOURCE_DIR@/cmake/TidewatchLaslib.cmake")
tidewatch_find_laslib(library)
if(TIDEWATCH_LASLIB_HALTS)
    set(library "${library}, which halts")
endif()
file(WRITE "${CMAKE_BINARY_DIR}/found" "${library}")
]]
    @ONLY)

# Installs a package of LASlib, in the place of the one before: its headers as far as the search looks at them, and a
# static library with nothing in it, since what a dynamic library lacks is not asked for when it is linked.
function(install_laslib version halts type)
    set(prefix "${folder}/prefix")
    file(REMOVE_RECURSE "${prefix}")
    file(WRITE "${prefix}/include/lasdefinitions.hpp" "#define LAS_TOOLS_VERSION ${version}\nclass LASheader;\n")
    file(
        WRITE "${prefix}/include/laswriter.hpp"
        "#include \"lasdefinitions.hpp\"\n"
        "class LASwriter;\n"
        "class LASwriteOpener { public: LASwriter* open(const LASheader*); };\n")
    if(halts)
        file(WRITE "${prefix}/include/lasmessage.hpp" "inline void halt_on_error(bool) {}\n")
    endif()
    file(WRITE "${prefix}/lib/libLASlib.a" "!<arch>\n")
    file(
        WRITE "${prefix}/lib/cmake/LASlib/LASlibConfig.cmake"
        "add_library(LASlib ${type} IMPORTED)\n"
        "set_target_properties(LASlib PROPERTIES IMPORTED_LOCATION \"${prefix}/lib/libLASlib.a\"\n"
        "    INTERFACE_INCLUDE_DIRECTORIES \"${prefix}/include\")\n")
endfunction()

# Configures, and holds against each other what is found and what should be.
function(expect found_expected message_expected)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -G "${GENERATOR}" -S "${folder}/project" -B "${folder}/build"
                "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" "-DCMAKE_CXX_COMPILER=${COMPILER}"
                "-DCMAKE_PREFIX_PATH=${folder}/prefix"
        OUTPUT_VARIABLE output
        ERROR_VARIABLE output
        RESULT_VARIABLE status)
    set(found "")
    if(status EQUAL 0)
        file(READ "${folder}/build/found" found)
    endif()
    if(NOT status EQUAL 0
       OR NOT found STREQUAL found_expected
       OR NOT output MATCHES "${message_expected}")
        file(REMOVE_RECURSE "${folder}")
        message(FATAL_ERROR "expected '${found_expected}' and a message like '${message_expected}'; found '${found}':\n"
                            "${output}")
    endif()
endfunction()

expect("" "")
install_laslib(221128 FALSE STATIC)
expect("LASlib" "")
install_laslib(241017 TRUE STATIC)
expect("LASlib, which halts" "")
install_laslib(221128 FALSE STATIC)
expect("LASlib" "")
install_laslib(150905 FALSE STATIC)
expect("" "prefix/lib/cmake/LASlib is passed over: [^\n]*221128")
install_laslib(221127 TRUE STATIC)
expect("" "passed over: [^\n]*221128")
install_laslib(241017 TRUE SHARED)
expect("" "passed over: it is not a static library")
install_laslib(241017 TRUE STATIC)
expect("LASlib, which halts" "")
file(REMOVE_RECURSE "${folder}/prefix")
expect("" "")

file(REMOVE_RECURSE "${folder}")
