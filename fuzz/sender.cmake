# What stands between a formatted text and a syslog receiver.
velm_fuzzer(sender fuzz_sender.cpp LIBS velm_syslog velm_core PkgConfig::LUA)
target_include_directories(fuzz_sender PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit/syslog)
