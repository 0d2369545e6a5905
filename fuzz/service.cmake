# What clients send to the service.
velm_fuzzer(control fuzz_control.cpp
    ${PROJECT_SOURCE_DIR}/agent/host/src/ControlServer.cpp
    ${PROJECT_SOURCE_DIR}/agent/host/src/ControlSocket.cpp)
target_include_directories(fuzz_control PRIVATE ${PROJECT_SOURCE_DIR}/agent/host/src)
