# cmake -D NM=... -D LIBRARY=... -D HEADER=... -P exported_symbols_test.cmake
#
# The shared library exports what the header declares, in the version that the header has, and nothing else.
file(STRINGS ${HEADER} lines REGEX "^QO_PUSHPULL_C_API ")
set(declared "")
foreach(line IN LISTS lines)
    string(REGEX MATCH "qo_pushpull_c_[a-z_]+\\(" name "${line}")
    string(REPLACE "(" "@@QO_PUSHPULL_C_1.0" name "${name}")
    list(APPEND declared "${name}")
endforeach()
list(SORT declared)

execute_process(COMMAND ${NM} --dynamic --defined-only --format=posix ${LIBRARY}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
list(FILTER lines EXCLUDE REGEX "^QO_PUSHPULL_C_[0-9.]+(@@[^ ]*)? A")  # the versions themselves
list(TRANSFORM lines REPLACE " .*" "")
list(SORT lines)

list(LENGTH declared count)
if(count EQUAL 0 OR NOT declared STREQUAL lines)
    message(FATAL_ERROR "declared:\n  ${declared}\nexported:\n  ${lines}")
endif()
