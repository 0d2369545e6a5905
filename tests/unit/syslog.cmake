# The syslog formatter, on the objects and fixtures of the module's tests.
set(SYSLOG_TEST_LIBS ostrel_objects velm_core kdi PkgConfig::LUA)

velm_unit_test(syslog_test
    syslog/SyslogFamilyTest.cpp
    syslog/SyslogHostileTest.cpp
    syslog/SyslogItemsTest.cpp
    syslog/SyslogLimitsTest.cpp
    syslog/SyslogNoteTest.cpp
    syslog/SyslogPacketLogTest.cpp
    syslog/SyslogPayloadLogTest.cpp
    syslog/SyslogSampleTest.cpp
    LIBS ${SYSLOG_TEST_LIBS})

# Counts every allocation, so it is a program of its own.
velm_unit_test(syslog_allocation_test syslog/SyslogAllocationTest.cpp LIBS ${SYSLOG_TEST_LIBS})

velm_unit_test(syslog_script_test
    syslog/SyslogScriptTest.cpp
    ${PROJECT_SOURCE_DIR}/plugins/ostrel/ostrel.cpp
    LIBS ${SYSLOG_TEST_LIBS})

foreach(name syslog_test syslog_allocation_test syslog_script_test)
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/module)
endforeach()
