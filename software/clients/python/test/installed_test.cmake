# cmake -D BUILD=... -D WORK=... -D LIBDIR=... -D PYTHON=... -P installed_test.cmake
#
# What is installed is whole: the package, with the library that it loads.
file(REMOVE_RECURSE ${WORK})
foreach(component client python)
    execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --component ${component} --prefix ${WORK}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
set(ENV{PYTHONPATH} ${WORK}/lib/python3/dist-packages)
set(ENV{LD_LIBRARY_PATH} ${WORK}/${LIBDIR})
execute_process(COMMAND ${PYTHON} -I -c "import pushpull" RESULT_VARIABLE result ERROR_QUIET)
if(result EQUAL 0)
    message(FATAL_ERROR "the machine has a package of this name, which hides the installed one")
endif()
execute_process(COMMAND ${PYTHON} -c "import pushpull; pushpull.Client(instance='_no_such_instance')"
    RESULT_VARIABLE result ERROR_VARIABLE error)
if(result EQUAL 0 OR NOT error MATCHES "ServiceNotReachable: cannot reach the service")
    message(FATAL_ERROR "it ended with ${result}:\n${error}")
endif()
if(NOT EXISTS ${WORK}/lib/python3/dist-packages/pushpull/py.typed)
    message(FATAL_ERROR "the types of the package are not seen without py.typed")
endif()
