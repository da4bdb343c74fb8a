# SPDX-License-Identifier: Apache-2.0
# How every target of the project is compiled, and the shape of its libraries and tests.

add_library(zam_options INTERFACE)
target_compile_options(zam_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    # g++ 12 sees overlaps inside std::string that are not there.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<BOOL:${ZAM_WERROR}>:-Werror>)
if(ZAM_SANITIZERS)
    # What the sanitizers insert makes g++ see uninitialised variables in the standard library.
    target_compile_options(zam_options INTERFACE -fsanitize=${ZAM_SANITIZERS} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(zam_options INTERFACE -fsanitize=${ZAM_SANITIZERS})
endif()

# zam_library(Name SOURCES...): the shared library lib<Name>.so, exported as zamclientlib::<Name>.
function(zam_library name)
    add_library(${name} SHARED ${ARGN})
    add_library(zamclientlib::${name} ALIAS ${name})
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:zam_options>)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                              $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    # Rooms see each other's internal headers as "support/common/Descriptor.h".
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    target_compile_features(${name} INTERFACE cxx_std_17)
    if(NOT ZAM_SANITIZERS)
        target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,--as-needed)
    endif()
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()

# zam_optimise_for_size(SOURCES...): for sources whose size matters more than their speed.
function(zam_optimise_for_size)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-Os>")
endfunction()

# zam_program(name SOURCES...): a program of the project.
function(zam_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE zam_options)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

# zam_test(name SOURCES... [LIBRARIES ...]): a GoogleTest program, each of its tests known to CTest.
function(zam_test name)
    cmake_parse_arguments(arg "" "" "LIBRARIES" ${ARGN})
    zam_program(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest_main)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 120 DISCOVERY_TIMEOUT 60)
endfunction()
