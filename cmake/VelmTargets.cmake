# velm_unit_test(NAME source...): one GoogleTest program under tests/unit, its cases registered
# with CTest. Adding a test is one line.
include(GoogleTest)

# Compiles once what nearly every test includes. For tests that link wx.
function(velm_reuse_test_headers name)
    if(NOT TARGET velm_test_headers)
        set(source ${CMAKE_BINARY_DIR}/test_headers.cpp)
        file(WRITE ${source} "")
        add_library(velm_test_headers OBJECT ${source})
        target_link_libraries(velm_test_headers PRIVATE velm_flags velm_core GTest::gtest)
        # Compiled as the sources of a program are, or the compiler does not take it.
        set_target_properties(velm_test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
        target_compile_options(velm_test_headers PRIVATE -fPIE)
        target_precompile_headers(velm_test_headers PRIVATE
            <gtest/gtest.h> <map> <string> <vector> <wx/string.h>)
    endif()
    target_precompile_headers(${name} REUSE_FROM velm_test_headers)
endfunction()

function(velm_unit_test name)
    cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE velm_flags ${ARG_LIBS} GTest::gtest GTest::gtest_main)
    if(velm_core IN_LIST ARG_LIBS)
        velm_reuse_test_headers(${name})
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()
