include(GoogleTest)

# kiva_add_test(name SOURCES a.cpp ... [LIBS lib ...] [LABELS l ...])
# One GoogleTest executable; every case becomes its own CTest test.
function(kiva_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
    gtest_discover_tests(${name}
        DISCOVERY_TIMEOUT 60
        PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 120
                   ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()

# kiva_add_benchmark(name SOURCES a.cpp ... [LIBS lib ...])
function(kiva_add_benchmark name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
endfunction()
