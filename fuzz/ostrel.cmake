# The module's targets. They share the plain references of the unit tests.
set(reference ${PROJECT_SOURCE_DIR}/tests/unit/reference)
set(module_libs ostrel_objects velm_core kdi PkgConfig::LUA)
velm_fuzzer(record fuzz_record.cpp ScriptHost.cpp
    ${reference}/LuaConfiguration.cpp ${reference}/ReferenceLog.cpp ${reference}/ReferenceFiles.cpp
    ${reference}/ReferenceText.cpp ${reference}/ReferenceAddress.cpp
    LIBS ${module_libs})
velm_fuzzer(address_text fuzz_address_text.cpp
    ${reference}/ReferenceAddress.cpp ${reference}/ReferenceEvents.cpp
    LIBS ${module_libs})
velm_fuzzer(configuration fuzz_configuration.cpp ScriptHost.cpp
    LIBS ${module_libs})
velm_fuzzer(log_file fuzz_log_file.cpp ${reference}/ReferenceRetrieval.cpp
    LIBS ${module_libs})
foreach(name record address_text configuration log_file)
    target_include_directories(fuzz_${name} PRIVATE ${reference})
endforeach()
