# SPDX-License-Identifier: Apache-2.0
# Headers that nearly every source includes are read once for all. A source still names what it needs: without
# ZAM_PRECOMPILED_HEADERS, through ccache (which does better by itself) and for the fuzzers, each reads its own.

# Every target of a kind has the same options, as compilers ask for, and takes the headers from a target of that kind.
function(zam_precompiled kind header)
    if(kind STREQUAL "library")
        add_library(zam_precompiled_${kind} OBJECT "${PROJECT_SOURCE_DIR}/cmake/Precompiled.cpp")
    else()
        add_executable(zam_precompiled_${kind} "${PROJECT_SOURCE_DIR}/cmake/Precompiled.cpp")
    endif()
    target_link_libraries(zam_precompiled_${kind} PRIVATE zam_options ${ARGN})
    target_include_directories(zam_precompiled_${kind} PRIVATE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/include")
    target_precompile_headers(zam_precompiled_${kind} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/${header}")
endfunction()

# zam_use_precompiled(FOLDER): for the targets of the folder and of those below it.
function(zam_use_precompiled folder)
    get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        get_target_property(libraries ${target} LINK_LIBRARIES)
        get_target_property(source_dir ${target} SOURCE_DIR)
        get_target_property(is_disabled ${target} DISABLE_PRECOMPILE_HEADERS)
        if(target MATCHES "^zam_precompiled_" OR is_disabled OR NOT "zam_options" IN_LIST libraries)
            continue()
        elseif("GTest::gtest_main" IN_LIST libraries)
            target_precompile_headers(${target} REUSE_FROM zam_precompiled_test)
        elseif(type MATCHES "^(OBJECT|STATIC)_LIBRARY$")
            target_precompile_headers(${target} REUSE_FROM zam_precompiled_library)
        elseif(type STREQUAL "EXECUTABLE" AND NOT source_dir MATCHES "^${PROJECT_SOURCE_DIR}/tests/")
            target_precompile_headers(${target} REUSE_FROM zam_precompiled_program)
        endif()
    endforeach()
    get_property(subfolders DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
    foreach(subfolder IN LISTS subfolders)
        zam_use_precompiled("${subfolder}")
    endforeach()
endfunction()
