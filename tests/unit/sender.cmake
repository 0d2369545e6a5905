# Sending to syslog receivers.
set(sender_libs velm_syslog velm_core PkgConfig::LUA)
velm_unit_test(sender_test
    sender/SyslogEventTest.cpp
    sender/SyslogHeaderTest.cpp
    sender/SyslogTargetTest.cpp
    LIBS ${sender_libs})
velm_unit_test(sender_thread_test
    sender/DatagramSenderTest.cpp
    sender/StreamSenderTest.cpp
    LIBS ${sender_libs})
target_include_directories(sender_thread_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/module)
