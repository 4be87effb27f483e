# Writes one row {"NAME", ENUMERATOR}, per component identifier of the header, in its order, so that the tool's
# names can never differ from the identifiers they stand for.
#   cmake -DHEADER=qo_component_ids.h -DOUTPUT=table.inc -P component_table.cmake
file(STRINGS ${HEADER} lines REGEX "^ *QO_CMP_?ID_[A-Z0-9_]+( *=.*)?,")
list(LENGTH lines count)
if(count EQUAL 0)
    message(FATAL_ERROR "${HEADER} names no component identifiers")
endif()
set(rows "")
foreach(line IN LISTS lines)
    string(REGEX MATCH "QO_CMP_?ID_[A-Z0-9_]+" enumerator "${line}")
    string(REGEX REPLACE "^QO_CMP_?ID_" "" name "${enumerator}")
    string(APPEND rows "    {\"${name}\", ${enumerator}},\n")
endforeach()
file(WRITE ${OUTPUT} "${rows}")
