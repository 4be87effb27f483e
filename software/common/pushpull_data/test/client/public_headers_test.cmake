# cmake -D BUILD=... -D WORK=... -D CC=... -D CXX=... -D FLAGS=... -D LINK_FLAGS=... -D PKG_CONFIG=... -D LIBDIR=...
#     -D READELF=... -D PROGRAM=... -D C_PROGRAM=... -D INCLUDE=... -D EXAMPLES=... -D PACKAGE_USER=...
#     [-D EMULATOR=...] -P public_headers_test.cmake
#
# Installs what component authors get into an empty folder and uses it as they do: every header by itself, then
# components that find the libraries through pkg-config. FLAGS are those that the library was compiled with, but for the
# width of time and file offsets: on a 32-bit board a component may have either. EMULATOR runs its programs. INCLUDE is
# where a target of this build that links the library finds headers: it sees the public ones alone, too.
separate_arguments(flags UNIX_COMMAND "${FLAGS} -std=c++20 -Wall -Wextra -Wpedantic -Werror")
separate_arguments(c_flags UNIX_COMMAND "${FLAGS} -std=c99 -Wall -Wextra -pedantic -Werror")
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
list(JOIN LINK_FLAGS " " link_text)
set(wide_flags -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64)
set(prefix ${WORK}/installed)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --component client --prefix ${prefix})

file(GLOB_RECURSE headers RELATIVE ${prefix}/include/qo_pushpull ${prefix}/include/*)
list(SORT headers)
if(NOT headers STREQUAL "qo_component_ids.h;qo_pushpull_api.h;qo_pushpull_c.h;qo_pushpull_client.hpp;qo_pushpull_message_queue.h")
    message(FATAL_ERROR "installed headers: ${headers}")
endif()

foreach(header ${headers})
    file(WRITE ${WORK}/alone.cpp "#include <${header}>\n#include <${header}>\n")
    run(${CXX} ${flags} -fsyntax-only -I${prefix}/include/qo_pushpull ${WORK}/alone.cpp)
    run(${CXX} ${flags} -std=c++17 -fsyntax-only -I${prefix}/include/qo_pushpull ${WORK}/alone.cpp)
endforeach()
foreach(header qo_component_ids.h qo_pushpull_c.h)
    file(WRITE ${WORK}/alone.c "#include <${header}>\n#include <${header}>\ntypedef int not_empty;\n")
    run(${CC} ${c_flags} -fsyntax-only -I${prefix}/include/qo_pushpull ${WORK}/alone.c)
endforeach()

list(TRANSFORM INCLUDE PREPEND -I)
run(${CXX} ${flags} -fsyntax-only ${INCLUDE} ${PROGRAM})
foreach(private qo_pushpull.h qo_pushpull_constants.h qo_pushpull_datamgr.h qo_pushpull_process_api.h)
    file(WRITE ${WORK}/private.cpp "#include \"${private}\"\n")
    execute_process(COMMAND ${CXX} ${flags} -fsyntax-only ${INCLUDE} ${WORK}/private.cpp
        RESULT_VARIABLE result ERROR_VARIABLE error)
    if(result EQUAL 0 OR NOT error MATCHES "${private}(: No such file|' file not found)")
        message(FATAL_ERROR "a component finds ${private}, or fails otherwise:\n${error}")
    endif()
endforeach()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${PKG_CONFIG} --cflags --libs qo_pushpull_api)
separate_arguments(found UNIX_COMMAND "${output}")
foreach(width narrow wide)
    run(${CXX} ${flags} ${${width}_flags} ${PROGRAM} -o ${WORK}/shared_${width} ${LINK_FLAGS} ${found} -Wl,-rpath,${prefix}/${LIBDIR})
    run(${emulator} ${WORK}/shared_${width})
endforeach()

run(${PKG_CONFIG} --cflags --libs qo_pushpull_c)
separate_arguments(found UNIX_COMMAND "${output}")
run(${CC} ${c_flags} ${C_PROGRAM} -o ${WORK}/c_shared ${LINK_FLAGS} ${found} -Wl,-rpath,${prefix}/${LIBDIR})
run(${emulator} ${WORK}/c_shared)

# With the static libraries there is nothing of ours left to load; with -static, nothing at all. A sanitizer has no static
# runtime.
set(static_kinds ours)
if(NOT FLAGS MATCHES "-fsanitize")
    list(APPEND static_kinds all)
endif()
foreach(kind IN LISTS static_kinds)
    run(${PKG_CONFIG} --cflags --libs --static qo_pushpull_api)
    set(cxx_found "${output}")
    run(${PKG_CONFIG} --cflags --libs --static qo_pushpull_c)
    set(c_found "${output}")
    foreach(language cxx c)
        if(kind STREQUAL ours)
            string(REGEX REPLACE "-l(qo_[a-z_]+)" "-l:lib\\1.a" ${language}_found "${${language}_found}")
        else()
            string(APPEND ${language}_found " -static")
        endif()
        separate_arguments(${language}_found UNIX_COMMAND "${${language}_found}")
    endforeach()
    run(${CXX} ${flags} ${PROGRAM} -o ${WORK}/static_${kind} ${LINK_FLAGS} ${cxx_found})
    run(${CC} ${c_flags} ${C_PROGRAM} -o ${WORK}/c_static_${kind} ${LINK_FLAGS} ${c_found})
    foreach(program static_${kind} c_static_${kind})
        run(${READELF} --dynamic ${WORK}/${program})
        if(output MATCHES "libqo_" OR (kind STREQUAL all AND output MATCHES "NEEDED"))
            message(FATAL_ERROR "${program} loads shared libraries:\n${output}")
        endif()
        run(${emulator} ${WORK}/${program})
    endforeach()
endforeach()

# As a project with CMake finds them, in C and C++, and in C alone.
foreach(languages "C;CXX" C)
    string(REPLACE ";" "_" folder "package_${languages}")
    run(${CMAKE_COMMAND} -S ${PACKAGE_USER} -B ${WORK}/${folder} -G Ninja
        -D CMAKE_PREFIX_PATH=${prefix} -D EXAMPLES=${EXAMPLES} "-DLANGUAGES=${languages}"
        -D CMAKE_C_COMPILER=${CC} -D CMAKE_CXX_COMPILER=${CXX}
        "-DCMAKE_C_FLAGS=${FLAGS} -Wall -Wextra -Wpedantic -Werror"
        "-DCMAKE_CXX_FLAGS=${FLAGS} -Wall -Wextra -Wpedantic -Werror" "-DCMAKE_EXE_LINKER_FLAGS=${link_text}")
    run(${CMAKE_COMMAND} --build ${WORK}/${folder})
    file(GLOB programs ${WORK}/${folder}/bin/*)
    foreach(program IN LISTS programs)
        run(${READELF} --dynamic ${program})
        if(program MATCHES "_static$" AND output MATCHES "libqo_")
            message(FATAL_ERROR "${program} loads libraries of ours:\n${output}")
        endif()
        if(program MATCHES "/(cxx|c)_component")
            run(${emulator} ${program})
        endif()
    endforeach()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${PACKAGE_USER} -B ${WORK}/package_later -G Ninja
    -D CMAKE_PREFIX_PATH=${prefix} -D VERSION=99 -D LANGUAGES=C -D CMAKE_C_COMPILER=${CC}
    RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
if(result EQUAL 0 OR NOT error MATCHES "qo_pushpull-config.cmake, version")
    message(FATAL_ERROR "a later version than the installed one is found, or fails otherwise:\n${error}")
endif()

# The examples that a component author copies, as a project of their own.
run(${CMAKE_COMMAND} -S ${EXAMPLES}/on_the_client -B ${WORK}/examples -G Ninja -D CMAKE_CXX_COMPILER=${CXX}
    "-DCMAKE_CXX_FLAGS=${FLAGS} -Wall -Wextra -Wpedantic -Werror" "-DCMAKE_EXE_LINKER_FLAGS=${link_text} -Wl,-rpath,${prefix}/${LIBDIR}")
run(${CMAKE_COMMAND} --build ${WORK}/examples)
# There is no service here: it says so.
execute_process(COMMAND ${emulator} ${WORK}/examples/status_panel --wait 0 RESULT_VARIABLE result ERROR_VARIABLE error)
if(NOT result EQUAL 1 OR NOT error MATCHES "the service does not answer")
    message(FATAL_ERROR "the example ended with ${result}:\n${error}")
endif()
