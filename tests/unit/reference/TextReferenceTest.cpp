// The text of random records against a chain of snprintf calls.

#include <gtest/gtest.h>

#include <lua.hpp>
#include <memory>

#include "ConfigUtils.h"
#include "LogData.h"
#include "RandomRecord.h"
#include "WorkingRecord.h"
#include "velm/Dom.h"

namespace {

using Reference::Entry;
using Reference::Random;

constexpr uint64_t kBase = 2400000;
constexpr uint64_t kCases = 100000;

// Interface 3 is configured as 17, interface 4 as -8; interface 5 has no configured ID.
const char* const kInterfaces =
    "return {driverInterfaceMap = {{id = 3, mac = '\\0\\1'}, {id = 4, mac = '\\255'},"
    " {id = 5, mac = 'x'}}, interfaceMap = {['00:01'] = {id = 17}, ['ff'] = {id = -8}}}";

class TextReference : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(luaL_dostring(m_State.get(), kInterfaces), LUA_OK);
        m_Config = std::make_unique<OSTREL::ConfigUtils>(m_State.get(), 1);
        m_Log.SetConfigUtils(m_Config.get());
    }

    // The ID of the last known interface stays while an unknown one is seen.
    int InterfaceId(int index) {
        if (index == m_LastIndex) return m_LastId;
        m_LastIndex = index;
        if (index == 3) m_LastId = 17;
        if (index == 4) m_LastId = -8;
        return m_LastId;
    }

    void Compare(const Entry& entry) {
        m_Record->Assign(entry.fixed, entry.PacketBytes(), entry.packetData.size(),
                         entry.LogBytes(), entry.logData.size());
        long long firstTime = -1;
        long long lastTime = -1;
        ASSERT_TRUE(m_Log.BinaryToAscii(m_Record.get(), m_Text, firstTime, lastTime));
        const Reference::RecordBytes bytes = entry.Bytes();
        EXPECT_EQ(m_Text, Reference::RecordText(
                              bytes, InterfaceId(static_cast<int>(entry.fixed.log_if_index))));
        EXPECT_EQ(firstTime, Reference::FirstTime(bytes.fixed));
        EXPECT_EQ(lastTime, Reference::LastTime(bytes.fixed));
    }

    VelmCore::CDom m_Dom;
    std::unique_ptr<lua_State, decltype(&lua_close)> m_State{luaL_newstate(), lua_close};
    std::unique_ptr<OSTREL::ConfigUtils> m_Config;
    OSTREL::LogData m_Log{m_Dom};
    std::unique_ptr<OSTREL::WorkingRecord> m_Record = std::make_unique<OSTREL::WorkingRecord>();
    std::string m_Text = "replaced";
    int m_LastIndex = -1;
    int m_LastId = -1;
};

TEST_F(TextReference, RandomRecordsGiveTheSameText) {
    const Reference::Seeds seeds(kBase, kCases);
    for (uint64_t seed = seeds.first; seed < seeds.last && !HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "OSTREL_REFERENCE_SEED=" << seed);
        Random random(seed);
        Entry entry = RandomEntry(random);
        if (!random.OneIn(4)) {
            entry.fixed.log_if_index = static_cast<uint32_t>(random.Pick({-1, 3, 4, 5, 6}));
        }
        Compare(entry);
    }
}

}  // namespace
