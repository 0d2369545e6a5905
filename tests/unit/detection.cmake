# Scan detection.
set(dir ${CMAKE_CURRENT_LIST_DIR}/detection)
velm_unit_test(detection_test
    ${dir}/BlacklistTest.cpp
    ${dir}/FlowBinTest.cpp
    ${dir}/FlowStatisticTest.cpp
    ${dir}/LikelihoodTest.cpp
    ${dir}/MaintenanceScriptTest.cpp
    ${dir}/PacketAnalysisTest.cpp
    ${dir}/ProbeEventTest.cpp
    ${dir}/SignatureTest.cpp
    LIBS ostrel_objects velm_core kdi PkgConfig::LUA)
target_include_directories(detection_test PRIVATE ${CMAKE_CURRENT_LIST_DIR})

# Random sequences against a plain reference. OSTREL_REFERENCE_SEED=n reruns the one with that seed.
velm_unit_test(detection_reference
    ${dir}/DetectorReferenceTest.cpp ${dir}/DetectorSequence.cpp ${dir}/ReferenceDetector.cpp
    LIBS ostrel_objects velm_core kdi PkgConfig::LUA)
target_include_directories(detection_reference PRIVATE ${CMAKE_CURRENT_LIST_DIR})

# Worth most under the thread sanitizer: ctest -L threads.
add_executable(detection_threads ${dir}/ThreadsTest.cpp)
target_include_directories(detection_threads PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(detection_threads PRIVATE
    velm_flags ostrel_objects velm_core kdi PkgConfig::LUA GTest::gtest GTest::gtest_main)
gtest_discover_tests(detection_threads DISCOVERY_MODE PRE_TEST PROPERTIES LABELS threads TIMEOUT 300)
