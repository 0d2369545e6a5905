# The driver library: its C interface, and the parts that it hides.
set(kdi_tests ${CMAKE_CURRENT_LIST_DIR}/kdi)
velm_unit_test(kdi_test
    ${kdi_tests}/ConnectionTest.cpp
    ${kdi_tests}/HandleTest.cpp
    ${kdi_tests}/LocalHostTest.cpp
    ${kdi_tests}/PacketRulesTest.cpp
    ${kdi_tests}/RecordedCaptureTest.cpp
    ${kdi_tests}/SslExchangeTest.cpp
    LIBS kdi)
target_compile_definitions(kdi_test PRIVATE
    KDI_TEST_CAPTURES="${CMAKE_CURRENT_LIST_DIR}/../captures")
velm_unit_test(kdi_parts_test
    ${kdi_tests}/BlocksTest.cpp
    ${kdi_tests}/LogMessageTest.cpp
    ${kdi_tests}/LogPrefixTest.cpp
    ${kdi_tests}/PartsTest.cpp
    LIBS kdi_objects)
target_compile_definitions(kdi_parts_test PRIVATE
    KDI_TEST_CAPTURES="${CMAKE_CURRENT_LIST_DIR}/../captures")
# TLS handshakes, and what becomes of their secrets.
velm_unit_test(kdi_tls_test
    ${kdi_tests}/KeyLogTest.cpp
    ${kdi_tests}/TlsConnectionTest.cpp
    ${kdi_tests}/TlsSourceTest.cpp
    ${kdi_tests}/TlsStreamsTest.cpp
    LIBS kdi_objects)
