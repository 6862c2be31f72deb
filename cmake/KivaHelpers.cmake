include(GoogleTest)

# kiva_add_test(name SOURCES a.cpp ... [LIBS lib ...] [LABELS l ...])
# One GoogleTest executable; every case becomes its own CTest test.
function(kiva_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
    set(properties TIMEOUT 120 ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
    if(ARG_LABELS)
        list(APPEND properties LABELS "${ARG_LABELS}")
    endif()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
endfunction()

# kiva_add_benchmark(name SOURCES a.cpp ... [LIBS lib ...])
function(kiva_add_benchmark name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
endfunction()

# ./run sanitize: AddressSanitizer (leak checks included) and
# UndefinedBehaviorSanitizer over everything built, tools and plug-in too.
# Undefined behaviour stops the program, so that the test fails.
option(KIVA_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(KIVA_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()
