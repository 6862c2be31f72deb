# Installs BUILD_DIR into WORK_DIR/prefix, checks what went where, then runs
# the installed lumo-host from another folder without --plugin and without
# LD_LIBRARY_PATH.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/elsewhere)
# The host names the plug-in by the path it resolved.
get_filename_component(work ${WORK_DIR} REALPATH)
set(prefix ${work}/prefix)

# run(EXPECTED_STATUS COMMAND...): output in `output`, fails on another status.
macro(run expected)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${ARGN}
        WORKING_DIRECTORY ${work}/elsewhere TIMEOUT 60
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status STREQUAL "${expected}")
        message(FATAL_ERROR "${ARGN}: ended with ${status}, not ${expected}:\n${output}")
    endif()
endmacro()

run(0 ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# Exactly the product: no test library, fake or preload.
file(GLOB_RECURSE installed LIST_DIRECTORIES false RELATIVE ${prefix} ${prefix}/*)
list(FILTER installed EXCLUDE REGEX "^${DOCDIR}/")
list(SORT installed)
set(expected bin/lumo-host bin/mgc-peer
    ${LIBDIR}/libkiva51.so ${LIBDIR}/liblumo_sdk.so ${LIBDIR}/librfmsg.so)
if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "installed ${installed}, expected ${expected}")
endif()
foreach(document README.md SECURITY.md docs/wire-protocol.md examples/netlist.json examples/pa_layout.iff)
    if(NOT EXISTS ${prefix}/${DOCDIR}/${document})
        message(FATAL_ERROR "${DOCDIR}/${document} was not installed")
    endif()
endforeach()

# A script file: a semicolon would split a CMake argument.
set(script ${work}/connected.brio)
file(WRITE ${script} "mgcconnect_is_connected_to_schematic();\n")
run(0 ${prefix}/bin/mgc-peer --help)
run(0 ${prefix}/bin/lumo-host --journal ${work}/journal.jsonl ${script})
file(READ ${work}/journal.jsonl journal)
foreach(record "\"plugin\":\"${prefix}/${LIBDIR}/libkiva51.so\"" "\"library\":\"CmdOp\"")
    string(FIND "${journal}" "${record}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "no ${record} in the journal:\n${journal}")
    endif()
endforeach()

# Without the plug-in the host says where it looked.
file(REMOVE ${prefix}/${LIBDIR}/libkiva51.so)
run(3 ${prefix}/bin/lumo-host ${script})
string(FIND "${output}" "lumo-host: no plug-in given and none found at ${prefix}/bin/libkiva51.so \
or ${prefix}/${LIBDIR}/libkiva51.so; name one with --plugin\n" at)
if(at EQUAL -1)
    message(FATAL_ERROR "the error does not say where the host looked:\n${output}")
endif()
