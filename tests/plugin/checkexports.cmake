# Fails unless the library defines exactly GetLibraryVersion and
# RegisterLibraryContents among its dynamic symbols.
execute_process(COMMAND nm -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(names "")
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] " "" name "${line}")
    list(APPEND names "${name}")
endforeach()
list(SORT names)
if(NOT names STREQUAL "GetLibraryVersion;RegisterLibraryContents")
    message(FATAL_ERROR "unexpected exported symbols: ${names}")
endif()
