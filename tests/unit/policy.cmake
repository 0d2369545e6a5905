# The policy's elements, their base class and the log vocabulary.
velm_unit_test(policy_elements
    policy/ElementTest.cpp policy/ElementXmlTest.cpp policy/ToLuaTest.cpp policy/VocabularyTest.cpp
    LIBS ostrel_objects velm_core PkgConfig::LUA)
velm_unit_test(policy_xml
    policy/SecureStringTest.cpp policy/XmlObjectTest.cpp policy/XmlParseTest.cpp
    LIBS velm_core Velm::wxXml PkgConfig::LUA)
target_include_directories(policy_xml PRIVATE ${PROJECT_SOURCE_DIR}/agent/core/src)
