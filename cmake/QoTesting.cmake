find_package(GTest REQUIRED)

# The tests labelled "thread": all that has to be built for a run under the thread sanitizer.
add_custom_target(qo_thread_tests)

# qo_add_test(NAME [ISOLATED] [SLOW] [EACH] SOURCES file... [LIBS target...] [LABELS label...] [WRAP symbol...])
#   One GoogleTest program and its CTest entry.
#   ISOLATED  runs it in IPC, mount and PID namespaces and under a user of its own (tests/support/isolated.cpp),
#             so that its queues, files and signals meet nobody else's
#   EACH      one CTest entry, and with ISOLATED one set of namespaces, per test case
#   SLOW      lives by the real clock; CTest starts it first so that it sleeps beside the others
#   WRAP      further link-time replacements that its sources define as __wrap_<symbol>
function(qo_add_test name)
    cmake_parse_arguments(arg "ISOLATED;SLOW;EACH" "" "SOURCES;LIBS;LABELS;WRAP" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    qo_target_options(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} qo_test_support)
    target_precompile_headers(${name} REUSE_FROM qo_test_support)
    foreach(symbol IN LISTS arg_WRAP)
        target_link_options(${name} PRIVATE -Wl,--wrap=${symbol})
    endforeach()

    if("thread" IN_LIST arg_LABELS)
        add_dependencies(qo_thread_tests ${name})
    endif()

    set(properties TIMEOUT 240)
    if(arg_SLOW)
        list(APPEND properties COST 1000)
    endif()
    if(arg_ISOLATED)
        # The path is spelled out because add_test does not evaluate generator expressions in this property.
        set_target_properties(${name} PROPERTIES
            CROSSCOMPILING_EMULATOR ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/qo_isolated)
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
