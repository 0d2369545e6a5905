# The module against plain references of its own, by random inputs. OSTREL_REFERENCE_SEED=n reruns
# the one case with that seed.
set(dir ${CMAKE_CURRENT_LIST_DIR}/reference)
velm_unit_test(reference_text ${dir}/TextReferenceTest.cpp ${dir}/ReferenceText.cpp
    LIBS ostrel_objects velm_core PkgConfig::LUA)
velm_unit_test(reference_address
    ${dir}/AddressReferenceTest.cpp ${dir}/ReferenceAddress.cpp ${dir}/ReferenceEvents.cpp
    LIBS ostrel_objects velm_core PkgConfig::LUA)
velm_unit_test(reference_log
    ${dir}/LogReferenceTest.cpp ${dir}/LogSequence.cpp ${dir}/LuaConfiguration.cpp
    ${dir}/ReferenceLog.cpp ${dir}/ReferenceFiles.cpp ${dir}/ReferenceText.cpp
    ${dir}/ReferenceAddress.cpp ${dir}/ReferenceEvents.cpp ${dir}/IntendedLeaks.cpp
    LIBS ostrel_objects velm_core PkgConfig::LUA)
velm_unit_test(reference_retrieval
    ${dir}/RetrievalReferenceTest.cpp ${dir}/ReferenceRetrieval.cpp ${dir}/RandomLogFile.cpp
    ${dir}/ReferenceEvents.cpp
    LIBS ostrel_objects velm_core PkgConfig::LUA)
