# The syslog formatter, judged by the strict CEF reader of its tests.
velm_fuzzer(syslog fuzz_syslog.cpp ScriptHost.cpp LIBS ostrel_objects velm_core kdi PkgConfig::LUA)
target_include_directories(fuzz_syslog PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit/syslog)
