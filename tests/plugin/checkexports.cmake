# Fails unless the library defines exactly GetLibraryVersion and
# RegisterLibraryContents among its dynamic symbols.
execute_process(COMMAND nm -D --defined-only --format=just-symbols ${LIBRARY}
    OUTPUT_VARIABLE symbols OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status)
string(REPLACE "\n" ";" names "${symbols}")
list(SORT names)
if(NOT status EQUAL 0 OR NOT names STREQUAL "GetLibraryVersion;RegisterLibraryContents")
    message(FATAL_ERROR "nm on ${LIBRARY} gave status ${status} and symbols: ${names}")
endif()
