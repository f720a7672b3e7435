# SPDX-License-Identifier: Apache-2.0
#
# Settings common to all targets of the project.

# tidewatch_target(NAME): language level, include roots, hidden symbols, warnings and sanitizers for one target. There
# are no unique symbols: a library with one would stay loaded after dlclose.
function(tidewatch_target name)
    target_compile_features(${name} PUBLIC cxx_std_20)
    set_target_properties(
        ${name}
        PROPERTIES CXX_EXTENSIONS OFF
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON)
    # Results must repeat bit for bit, so products and sums are never fused.
    target_compile_options(${name} PRIVATE -ffp-contract=off $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:tidewatch-warnings>)
    if(TIDEWATCH_SANITIZE)
        target_compile_options(${name} PRIVATE -fsanitize=${TIDEWATCH_SANITIZE} -fno-sanitize-recover=all
                                               -fno-omit-frame-pointer)
        target_link_options(${name} PRIVATE -fsanitize=${TIDEWATCH_SANITIZE})
        # For code that must know; compilers tell in different ways.
        foreach(kind IN ITEMS address thread)
            if(TIDEWATCH_SANITIZE MATCHES ${kind})
                string(TOUPPER ${kind} kind)
                target_compile_definitions(${name} PRIVATE TIDEWATCH_${kind}_SANITIZER)
            endif()
        endforeach()
    endif()
endfunction()

# tidewatch_compile_alone(SOURCE...): names that these sources define for themselves are also defined in other sources of
# their target. They are left out where sources are compiled together (CMAKE_UNITY_BUILD), as for the sanitizers in CI.
function(tidewatch_compile_alone)
    set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# tidewatch_dynamic_library(NAME): tidewatch_target for a dynamic library without a version and without undefined
# symbols.
function(tidewatch_dynamic_library name)
    tidewatch_target(${name})
    target_link_options(${name} PRIVATE -Wl,--exclude-libs,ALL)
    # Clang leaves the sanitizers' functions to the program that loads the library.
    if(NOT (TIDEWATCH_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
        target_link_options(${name} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()

# tidewatch_shared_library(NAME): a dynamic library with a version.
function(tidewatch_shared_library name)
    tidewatch_dynamic_library(${name})
    set_target_properties(${name} PROPERTIES VERSION "${PROJECT_VERSION}" SOVERSION "${PROJECT_VERSION_MAJOR}")
endfunction()

# The strict warnings are for developers of this project, never for those who embed it: hence a separate target.
add_library(tidewatch-warnings INTERFACE)
if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(
        tidewatch-warnings
        INTERFACE -Wall
                  -Wextra
                  -Wpedantic
                  -Wshadow
                  -Wconversion
                  -Wsign-conversion
                  -Wold-style-cast
                  -Wcast-qual
                  -Wcast-align
                  -Wnon-virtual-dtor
                  -Woverloaded-virtual
                  -Wdouble-promotion
                  -Wformat=2)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(tidewatch-warnings INTERFACE -Wduplicated-cond -Wlogical-op)
        if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
            # False positives for string concatenation (GCC bug 105651).
            target_compile_options(tidewatch-warnings INTERFACE -Wno-restrict)
        endif()
    endif()
    if(CMAKE_UNITY_BUILD)
        # A name that another source defines for itself is not shadowed.
        target_compile_options(tidewatch-warnings INTERFACE -Wno-shadow)
    endif()
    if(TIDEWATCH_WERROR)
        target_compile_options(tidewatch-warnings INTERFACE -Werror)
    endif()
endif()
