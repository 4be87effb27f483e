# The warnings under which all of our own code is clean. Debian's headers are system headers and not meant.
add_library(qo_compile_options INTERFACE)
target_compile_options(qo_compile_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2)

# Off where the service is built to be shipped: a newer compiler's new warning is no reason not to have it.
option(QO_WERROR "A warning is an error" OFF)
if(QO_WERROR)
    target_compile_options(qo_compile_options INTERFACE -Werror)
endif()

if(CMAKE_CXX_FLAGS_DEBUG MATCHES "-fsanitize")
    set(QO_SANITIZED ON)
endif()

# GCC's sanitizers are shared libraries anyway. Inside a program, their own calls would reach the functions that a test
# replaces (qo_wrap).
if(QO_SANITIZED AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT QO_BUILD_FUZZERS)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
        OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(QO_SANITIZER_LINK_OPTIONS -shared-libsan -Wl,-rpath,${runtime})
    add_link_options(${QO_SANITIZER_LINK_OPTIONS})
endif()

# A second build of the same sources, such as one after a switch of branches, takes what the first one made.
find_program(QO_CCACHE ccache)
if(QO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Debug information names the build folder; the programs of two folders are the same otherwise. A precompiled header
    # counts by its content.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
        CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros ${QO_CCACHE})
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    add_compile_options("$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endif()

# A 32-bit C library counts seconds in 32 bits unless asked, and the last of them is in January 2038: files dated later
# cannot be looked at then, and no wait ends. Components need not be built like this (see the public headers test).
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(qo_compile_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    target_compile_options(qo_compile_options INTERFACE
        # Else a stack trace ends at the first function that cannot throw, often the one that crashed.
        -funwind-tables
        # Notes on what GCC 7 changed for libraries built with an older one.
        -Wno-psabi)
endif()

# qo_target_options(TARGET): what every target of ours is compiled with.
function(qo_target_options target)
    target_link_libraries(${target} PRIVATE qo_compile_options)
endfunction()
