# cmake -D BUILD=... -D WORK=... -D CXX=... -D FLAGS=... -D PKG_CONFIG=... -D LIBDIR=... -D PROGRAM=... -P public_headers_test.cmake
#
# Installs what component authors get into an empty folder and uses it as they do: every header by itself, then a
# component that finds the library through pkg-config. FLAGS are those that the library was compiled with.
separate_arguments(flags UNIX_COMMAND "${FLAGS} -std=c++20 -Wall -Wextra -Wpedantic -Werror")
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
if(NOT headers STREQUAL "qo_component_ids.h;qo_pushpull_api.h;qo_pushpull_message_queue.h")
    message(FATAL_ERROR "installed headers: ${headers}")
endif()

foreach(header ${headers})
    file(WRITE ${WORK}/alone.cpp "#include <${header}>\n#include <${header}>\n")
    run(${CXX} ${flags} -fsyntax-only -I${prefix}/include/qo_pushpull ${WORK}/alone.cpp)
endforeach()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${PKG_CONFIG} --cflags --libs qo_pushpull_api)
separate_arguments(found UNIX_COMMAND "${output}")
run(${CXX} ${flags} ${PROGRAM} -o ${WORK}/shared ${found} -Wl,-rpath,${prefix}/${LIBDIR})
run(${WORK}/shared)

run(${PKG_CONFIG} --static --libs qo_pushpull_api)
string(REPLACE "-lqo_pushpull_api" "-l:libqo_pushpull_api.a" output "${output}")
separate_arguments(found_static UNIX_COMMAND "${output}")
run(${CXX} ${flags} -I${prefix}/include/qo_pushpull ${PROGRAM} -o ${WORK}/static ${found_static}
    -Wl,-rpath,${prefix}/${LIBDIR})
run(${WORK}/static)
