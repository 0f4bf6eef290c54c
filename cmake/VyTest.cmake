include(GoogleTest)
find_package(GTest REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Test)

# vy_add_test(NAME [VIRTUAL_TIME] SOURCES s... LINK lib...)
#
# A test program out of the shared main(); each of its tests runs as a process of its own, so that
# no singleton and no setting leaks into the next. With VIRTUAL_TIME its event loop runs on the
# virtual clock. LINK takes a library's objects or its shared form, never both.
function(vy_add_test name)
    cmake_parse_arguments(ARG "VIRTUAL_TIME" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${PROJECT_SOURCE_DIR}/tests/support/main.cpp ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${ARG_LINK} tests_support vy_settings Qt5::Test GTest::gmock)
    if(ARG_VIRTUAL_TIME)
        target_compile_definitions(${name} PRIVATE VY_VIRTUAL_TIME)
    endif()
    if(VY_SANITIZE) # seconds; the sanitizers slow some tests down tenfold
        set(timeout 300)
    else()
        set(timeout 60)
    endif()
    gtest_discover_tests(${name} TEST_PREFIX ${name}. NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT ${timeout} ENVIRONMENT "LANG=C.UTF-8")
endfunction()
