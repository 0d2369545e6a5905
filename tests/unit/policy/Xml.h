#pragma once

#include <string>

#include <gtest/gtest.h>
#include <wx/mstream.h>

#include "velm/XmlObject.h"

// Reading and writing of policy elements as tests speak of it.
namespace policy_test {

inline std::string Write(VelmCore::XMLObject& object) {
    wxMemoryOutputStream stream;
    object.ToXML(stream, 0, false);
    std::string bytes(stream.GetLength(), '\0');
    stream.CopyTo(&bytes[0], bytes.size());
    return bytes;
}

inline ::testing::AssertionResult Read(VelmCore::XMLObject& object, const std::string& xml) {
    const int result = object.FromXML(wxString::FromUTF8(xml.data(), xml.size()), nullptr);
    if (result == 0 && object.ParseComplete()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "result " << result << ", " << object.ParseError().utf8_str().data();
}

// Reads what must be refused, and gives the reason.
inline std::string WhyRefused(VelmCore::XMLObject& object, const std::string& xml) {
    const ::testing::AssertionResult result = Read(object, xml);
    EXPECT_FALSE(result) << "was read: " << xml.substr(0, 200);
    EXPECT_FALSE(object.ParseComplete());
    return object.ParseError().utf8_string();
}

// What was written reads back, and writes as the same bytes.
template <typename Element>
void ExpectRoundTrip(const std::string& xml) {
    Element first;
    ASSERT_TRUE(Read(first, xml));
    EXPECT_EQ(Write(first), xml);
    Element second;
    ASSERT_TRUE(Read(second, Write(first)));
    EXPECT_EQ(Write(second), xml);
}

}  // namespace policy_test
