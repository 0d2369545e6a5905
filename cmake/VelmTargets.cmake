# velm_unit_test(NAME source...): one GoogleTest program under tests/unit, its cases registered
# with CTest. Adding a test is one line.
include(GoogleTest)

function(velm_unit_test name)
    cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE velm_flags ${ARG_LIBS} GTest::gtest GTest::gtest_main)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()
