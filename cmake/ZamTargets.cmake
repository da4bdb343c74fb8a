# SPDX-License-Identifier: Apache-2.0
# How every target of the project is compiled, and the shape of its libraries and tests.

add_library(zam_options INTERFACE)
target_compile_options(zam_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    # g++ 12 sees overlaps inside std::string that are not there.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    # Of headers that are compiled ahead it forgets that they are the system's, and warns of what it imagines in them.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${ZAM_PRECOMPILED_HEADERS}>>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-maybe-uninitialized>
    $<$<BOOL:${ZAM_WERROR}>:-Werror>)
if(ZAM_SANITIZERS)
    # What the sanitizers insert makes g++ see uninitialised variables in the standard library.
    target_compile_options(zam_options INTERFACE -fsanitize=${ZAM_SANITIZERS} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(zam_options INTERFACE -fsanitize=${ZAM_SANITIZERS})
endif()

# zam_library(Name SOURCES...): the shared library lib<Name>.so, exported as zamclientlib::<Name>. Its objects
# are there as <Name>Objects too, for zam_static.
function(zam_library name)
    add_library(${name}Objects OBJECT ${ARGN})
    target_link_libraries(${name}Objects PRIVATE zam_options)
    # Rooms see each other's internal headers as "support/common/Descriptor.h".
    target_include_directories(${name}Objects PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)

    add_library(${name} SHARED $<TARGET_OBJECTS:${name}Objects>)
    add_library(zamclientlib::${name} ALIAS ${name})
    target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:zam_options>)
    target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                                 $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${name} INTERFACE cxx_std_17)
    if(NOT ZAM_SANITIZERS)
        target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,--as-needed)
    endif()
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()

# zam_static(name LIBRARIES...): the libraries in one archive, for programs that are started for every
# connection: without shared libraries of ours they start sooner.
function(zam_static name)
    list(TRANSFORM ARGN REPLACE "(.+)" "$<TARGET_OBJECTS:\\1Objects>" OUTPUT_VARIABLE objects)
    add_library(${name} STATIC ${objects})
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    target_include_directories(${name} INTERFACE ${zamclientlib_SOURCE_DIR}/include)
    find_package(Threads REQUIRED)
    target_link_libraries(${name} INTERFACE Threads::Threads)
endfunction()

# zam_standalone(program): a program without shared C++ libraries brings the language's own along, which
# halves its start once more.
function(zam_standalone program)
    if(NOT ZAM_SANITIZERS)
        target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc -Wl,--as-needed)
    endif()
endfunction()

# zam_forgets(program): a program that is sent secrets overwrites the memory that it frees. The sanitizers bring a heap
# of their own.
function(zam_forgets program)
    if(NOT ZAM_SANITIZERS)
        target_sources(${program} PRIVATE ${PROJECT_SOURCE_DIR}/service/WipeFreedMemory.cpp)
        # To look a function up at its first call, the loader puts the registers on the stack, whatever they hold.
        target_link_options(${program} PRIVATE -Wl,-z,now)
    endif()
endfunction()

# zam_optimise_for_size(SOURCES...): for sources whose size matters more than their speed.
function(zam_optimise_for_size)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-Os>")
    # Headers compiled ahead are for sources with the same options.
    if(CMAKE_BUILD_TYPE STREQUAL "Release")
        set_source_files_properties(${ARGN} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    endif()
endfunction()

# Tests call what shall fail, and have no use for its result. Last of the options, since clang's -Wall brings it back.
add_library(zam_test_options INTERFACE)
target_compile_options(zam_test_options INTERFACE -Wno-unused-result)

# zam_program(name SOURCES...): a program of the project.
function(zam_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE zam_options)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

# zam_test(name [THREADS] [LABEL label] SOURCES... [LIBRARIES ...]): a GoogleTest program, each of its tests known
# to CTest, under the label if one is given. With THREADS, the thread sanitizer is to watch it: the label is, or ends
# in, "threads", and the target thread_tests builds it.
function(zam_test name)
    cmake_parse_arguments(arg "THREADS" "LABEL" "LIBRARIES" ${ARGN})
    zam_program(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gtest_main zam_test_options)
    set(properties "")
    set(labels ${arg_LABEL})
    if(arg_THREADS)
        list(APPEND labels threads)
        if(NOT TARGET thread_tests)
            add_custom_target(thread_tests)
        endif()
        add_dependencies(thread_tests ${name})
    endif()
    if(labels)
        # One word, found by either name: a list does not survive the discovery.
        list(JOIN labels - label)
        list(APPEND properties LABELS ${label})
    endif()
    if(NOT ZAM_SANITIZERS)
        gtest_discover_tests(${name} PROPERTIES TIMEOUT 120 ${properties} DISCOVERY_TIMEOUT 60)
        return()
    endif()
    # With a sanitizer a process takes longer to start and to end than most tests take, so CTest knows parts of the
    # program, each of which runs its share of the tests.
    set(parts 4)
    foreach(part RANGE 1 ${parts})
        math(EXPR index "${part} - 1")
        add_test(NAME ${name}.Part${part}Of${parts} COMMAND ${name} --gtest_brief=1)
        set_tests_properties(${name}.Part${part}Of${parts} PROPERTIES TIMEOUT 600 ${properties}
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${parts};GTEST_SHARD_INDEX=${index}")
    endforeach()
endfunction()
