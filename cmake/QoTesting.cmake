find_package(GTest REQUIRED)

# Built for another machine, tests run by its emulator (CMAKE_CROSSCOMPILING_EMULATOR). The launcher that isolates them is
# this machine's own then: it makes namespaces, which an emulator cannot.
set(QO_ISOLATED ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/qo_isolated)

set(QO_TEST_TIMEOUT 240)  # seconds
if(CMAKE_CROSSCOMPILING)
    set(QO_TEST_TIMEOUT 1800)
endif()

# qo_runnable(VARIABLE TARGET): sets the variable to what a test has to start to run the program of that target.
function(qo_runnable variable target)
    set(${variable} $<TARGET_FILE:${target}> PARENT_SCOPE)
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        # By way of a link, so that the process has the name of the program and not the emulator's.
        set(script ${CMAKE_BINARY_DIR}/emulated/${target})
        set(link ${CMAKE_BINARY_DIR}/emulated/by_name/${target})
        list(GET CMAKE_CROSSCOMPILING_EMULATOR 0 emulator)
        list(SUBLIST CMAKE_CROSSCOMPILING_EMULATOR 1 -1 options)
        list(JOIN options " " options)
        file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/emulated/by_name)
        file(CREATE_LINK ${emulator} ${link} SYMBOLIC)
        file(GENERATE OUTPUT ${script} CONTENT "#!/bin/sh\nexec ${link} ${options} $<TARGET_FILE:${target}> \"$@\"\n"
            FILE_PERMISSIONS OWNER_READ OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
        set(${variable} ${script} PARENT_SCOPE)
    endif()
endfunction()

# What a 32-bit C library calls the functions that take a 64-bit time or file offset, and so what the linker has to wrap
# there.
set(QO_TIME64_NAME_time __time64)
set(QO_TIME64_NAME_mq_timedreceive __mq_timedreceive_time64)
set(QO_TIME64_NAME_localtime_r __localtime64_r)
set(QO_TIME64_NAME_mmap mmap64)
set(QO_TIME64_NAME_mq_timedsend __mq_timedsend_time64)
set(QO_TIME64_NAME_timer_gettime __timer_gettime64)
set(QO_TIME64_NAME_timer_settime __timer_settime64)

# qo_test_sources(TARGET): how test sources are compiled. Not optimised, whatever the product is: they are compiled more
# often than they are run, and with the sanitizers the optimiser takes more than half of the time. What is shipped is
# debugged with its own debug information, not with that of its tests, which is a fifth of the time.
function(qo_test_sources target)
    qo_target_options(${target})
    # GoogleTest's macros bring their own else; an EXPECT that is all that an if does needs no braces for it.
    target_compile_options(${target} PRIVATE -O0 -Wno-dangling-else $<$<CONFIG:RelWithDebInfo>:-g0>)
    if(QO_SANITIZED)
        target_compile_definitions(${target} PRIVATE QO_SANITIZED)  # which has its own allocator, among others
    endif()
    if(NOT target STREQUAL qo_test_support)
        target_precompile_headers(${target} REUSE_FROM qo_test_support)
    endif()
    # A library is compiled like the programs that share the precompiled header, not like a part of a shared library.
    get_target_property(type ${target} TYPE)
    if(type STREQUAL STATIC_LIBRARY)
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
        target_compile_options(${target} PRIVATE -fPIE)
    endif()
endfunction()

# qo_wrap(TARGET SYMBOL): calls of the symbol become calls of __wrap_SYMBOL, which reaches it as __real_SYMBOL.
# C functions only: a test that replaces a C++ function fails as soon as that one is inlined, split or moved.
function(qo_wrap target symbol)
    if(symbol MATCHES "^_Z")
        message(FATAL_ERROR "${target} wraps ${symbol}: a test replaces no C++ function, see CONTRIBUTING.md")
    endif()
    if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND DEFINED QO_TIME64_NAME_${symbol})
        set(name ${QO_TIME64_NAME_${symbol}})
        target_compile_definitions(${target} PRIVATE __wrap_${symbol}=__wrap_${name} __real_${symbol}=__real_${name})
        set(symbol ${name})
    endif()
    target_link_options(${target} PRIVATE -Wl,--wrap=${symbol})
endfunction()

# The tests labelled "thread": all that has to be built for a run under the thread sanitizer.
add_custom_target(qo_thread_tests)

# qo_add_test(NAME [ISOLATED] [SLOW] [EACH] SOURCES file... [LIBS target...] [LABELS label...] [WRAP symbol...])
#   One GoogleTest program and its CTest entry.
#   ISOLATED  runs it in IPC, mount and PID namespaces and under a user of its own (tests/support/isolated.cpp),
#             so that its queues, files and signals meet nobody else's
#   EACH      one CTest entry, and with ISOLATED one set of namespaces, per test case
#   SLOW      lives by the real clock; CTest starts it first so that it sleeps beside the others
#   WRAP      further C functions to replace at link time, which its sources define as __wrap_<symbol>
function(qo_add_test name)
    cmake_parse_arguments(arg "ISOLATED;SLOW;EACH" "" "SOURCES;LIBS;LABELS;WRAP" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} qo_test_support)
    qo_test_sources(${name})
    foreach(symbol IN LISTS arg_WRAP)
        qo_wrap(${name} ${symbol})
    endforeach()

    if("thread" IN_LIST arg_LABELS)
        add_dependencies(qo_thread_tests ${name})
    endif()

    set(properties TIMEOUT ${QO_TEST_TIMEOUT})
    if(arg_SLOW)
        list(APPEND properties COST 1000)
    endif()
    if(arg_ISOLATED)
        # The path is spelled out because add_test does not evaluate generator expressions in this property.
        set_target_properties(${name} PROPERTIES
            CROSSCOMPILING_EMULATOR "${QO_ISOLATED};${CMAKE_CROSSCOMPILING_EMULATOR}")
        add_dependencies(${name} qo_isolated)
    endif()
    if(arg_EACH)
        # Listing runs through qo_isolated too, which then just runs the program.
        gtest_discover_tests(${name} PROPERTIES ${properties} DISCOVERY_TIMEOUT 60)
        # gtest_discover_tests would take a second label for the next property.
        set(labels_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_labels.cmake)
        file(WRITE ${labels_file} "set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS \"${arg_LABELS}\")\n")
        set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels_file})
    else()
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" ${properties})
    endif()
endfunction()
include(GoogleTest)
