# The SSL key service and its keys.
set(dir ${CMAKE_CURRENT_LIST_DIR}/ssl)
set(SSL_TEST_LIBS ostrel_objects velm_core kdi PkgConfig::LUA)

velm_unit_test(ssl_key_test
    ${dir}/CredentialKindsTest.cpp
    ${dir}/RSAKeyTest.cpp
    LIBS ${SSL_TEST_LIBS})

velm_unit_test(ssl_service_test
    ${dir}/PoolTest.cpp
    ${dir}/ReaderTest.cpp
    ${dir}/RequestTest.cpp
    ${dir}/ServiceScriptTest.cpp
    ${dir}/WorkerTest.cpp
    ${PROJECT_SOURCE_DIR}/plugins/ostrel/ostrel.cpp
    LIBS ${SSL_TEST_LIBS})

velm_unit_test(ssl_threads_test ${dir}/SSLThreadsTest.cpp LIBS ${SSL_TEST_LIBS})

foreach(name ssl_key_test ssl_service_test ssl_threads_test)
    target_include_directories(${name} PRIVATE ${dir} ${CMAKE_CURRENT_LIST_DIR}/module)
    target_compile_definitions(${name} PRIVATE
        CREDENTIAL_FILES="${CMAKE_CURRENT_LIST_DIR}/../captures/tls")
endforeach()
