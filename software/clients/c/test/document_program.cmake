# cmake -D DOCUMENT=... -D LANGUAGE=... -D OUTPUT=... -P document_program.cmake
#
# Writes the first block of that language in a document to a file.
file(READ ${DOCUMENT} text)
string(FIND "${text}" "```${LANGUAGE}\n" begin)
if(begin EQUAL -1)
    message(FATAL_ERROR "${DOCUMENT} has no program in ${LANGUAGE}")
endif()
string(SUBSTRING "${text}" ${begin} -1 text)
string(FIND "${text}" "\n" begin)
string(FIND "${text}" "\n```" end)
math(EXPR begin "${begin} + 1")
math(EXPR length "${end} - ${begin} + 1")
string(SUBSTRING "${text}" ${begin} ${length} text)
file(WRITE ${OUTPUT} "${text}")
