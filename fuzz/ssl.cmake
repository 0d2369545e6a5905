# The SSL key service.
set(ssl_libs ostrel_objects velm_core kdi PkgConfig::LUA)
velm_fuzzer(credential fuzz_credential.cpp LIBS ${ssl_libs})
velm_fuzzer(ssl_request fuzz_ssl_request.cpp LIBS ${ssl_libs})
target_include_directories(fuzz_ssl_request PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit/ssl)
