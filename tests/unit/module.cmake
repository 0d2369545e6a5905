# The module's log side. The programs link the module's objects, so that a test can look inside.
set(MODULE_TEST_LIBS ostrel_objects velm_core kdi PkgConfig::LUA)

velm_unit_test(module_log_test
    module/AddressSpaceTest.cpp
    module/CacheLimitsTest.cpp
    module/CacheScheduleTest.cpp
    module/CacheTest.cpp
    module/ConfigUtilsTest.cpp
    module/FileSetTest.cpp
    module/FilesTest.cpp
    module/FullDiskTest.cpp
    module/LogFilterTest.cpp
    module/LogFileReaderTest.cpp
    module/PipelineTest.cpp
    module/RecordTextTest.cpp
    module/RetrievalCorruptionTest.cpp
    module/RetrievalLateLinesTest.cpp
    module/RetrievalTest.cpp
    module/SettingsTest.cpp
    module/WordSizeTest.cpp
    LIBS ${MODULE_TEST_LIBS})

# Replaces write(2) by a counting one, so it is a program of its own.
velm_unit_test(module_write_test module/InterruptedWriteTest.cpp LIBS ${MODULE_TEST_LIBS})

velm_unit_test(module_script_test
    module/ScriptClassTest.cpp
    module/ScriptSafetyTest.cpp
    module/ScriptTest.cpp
    ${PROJECT_SOURCE_DIR}/plugins/ostrel/ostrel.cpp
    LIBS ${MODULE_TEST_LIBS})

# Opens the module as it is shipped.
velm_unit_test(module_file_test module/ModuleFileTest.cpp LIBS velm_core PkgConfig::LUA)
target_compile_definitions(module_file_test PRIVATE OSTREL_FILE="$<TARGET_FILE:ostrel>")
add_dependencies(module_file_test ostrel)
