set(core_libs velm_core Velm::wxBase PkgConfig::SQLITE PkgConfig::LUA OpenSSL::Crypto
    Threads::Threads)
set(core_tests ${CMAKE_CURRENT_LIST_DIR}/core)
velm_unit_test(core_test
    ${core_tests}/bounded_text_test.cpp
    ${core_tests}/clock_test.cpp
    ${core_tests}/concurrency_test.cpp
    ${core_tests}/dom_test.cpp
    ${core_tests}/events_test.cpp
    ${core_tests}/files_test.cpp
    ${core_tests}/policy_test.cpp
    ${core_tests}/runnable_test.cpp
    ${core_tests}/settings_file_test.cpp
    ${core_tests}/settings_test.cpp
    ${core_tests}/syslogger_test.cpp
    ${core_tests}/text_test.cpp
    ${core_tests}/trace_test.cpp
    LIBS ${core_libs})
# Takes over the log of its process.
velm_unit_test(core_log_test ${core_tests}/log_test.cpp LIBS ${core_libs})
