// Policy elements as Lua tables, on a real Lua state.
#include <cstdlib>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "Xml.h"
#include "policy/ConnectionType.h"
#include "policy/PacketFilter.h"
#include "policy/PayloadFilter.h"
#include "policy/SSLCredential.h"

namespace {

using namespace OSTREL;

// An allocator that fails once `left` allocations were made; never if it is negative.
struct Budget {
    int left = -1;
};

void* Allocate(void* context, void* block, size_t oldSize, size_t size) {
    Budget& budget = *static_cast<Budget*>(context);
    if (size == 0) {
        std::free(block);
        return nullptr;
    }
    const bool grows = !block || size > oldSize;  // Lua relies on it that shrinking never fails
    if (grows && budget.left == 0) return nullptr;
    if (grows && budget.left > 0) --budget.left;
    return std::realloc(block, size);
}

int CallToLua(lua_State* L) {
    static_cast<const VelmCore::XMLObject*>(lua_touserdata(L, 1))->toLua(L);
    return 1;
}

class ToLua : public ::testing::Test {
protected:
    void SetUp() override {
        m_Lua = lua_newstate(&Allocate, &m_Budget);
        ASSERT_NE(m_Lua, nullptr);
        luaL_openlibs(m_Lua);
    }
    void TearDown() override { lua_close(m_Lua); }

    // Pushes the object as a script call would.
    int Push(const VelmCore::XMLObject& object) {
        lua_pushcfunction(m_Lua, &CallToLua);
        lua_pushlightuserdata(m_Lua, const_cast<VelmCore::XMLObject*>(&object));
        return lua_pcall(m_Lua, 1, 1, 0);
    }

    // Evaluates a Lua expression in which `t` is the object, and gives it as text.
    std::string Eval(const VelmCore::XMLObject& object, const std::string& expression) {
        EXPECT_EQ(Push(object), LUA_OK);
        lua_setglobal(m_Lua, "t");
        const std::string chunk = "return tostring(" + expression + ")";
        EXPECT_EQ(luaL_dostring(m_Lua, chunk.c_str()), 0) << lua_tostring(m_Lua, -1);
        size_t length = 0;
        const char* text = lua_tolstring(m_Lua, -1, &length);
        const std::string result(text, length);
        lua_settop(m_Lua, 0);
        return result;
    }

    Budget m_Budget;
    lua_State* m_Lua = nullptr;
};

TEST_F(ToLua, AttributesHaveLuaTypes) {
    CPacketFilter filter;
    filter.m_Id = -7;
    filter.m_Name = wxString::FromUTF8("caf\xC3\xA9");
    filter.m_LogData = true;
    EXPECT_EQ(Eval(filter, "type(t.id) .. t.id"), "number-7");
    EXPECT_EQ(Eval(filter, "t.name"), "caf\xC3\xA9");
    EXPECT_EQ(Eval(filter, "t.logData"), "true");
    EXPECT_EQ(Eval(filter, "t.disableLog"), "false");
}

TEST_F(ToLua, NumbersKeepTheirEnds) {
    CPacketFilter filter;
    filter.m_Priority = 2147483647;
    filter.m_Protocol = -2147483647 - 1;
    EXPECT_EQ(Eval(filter, "string.format('%d %d', t.priority, t.protocol)"),
              "2147483647 -2147483648");
}

TEST_F(ToLua, NullAttributesAreLeftOut) {
    CPacketFilter filter;
    EXPECT_EQ(Eval(filter, "t.filterAction"), "nil");
    filter.SetAttributeNull(&filter.m_FilterAction, false);
    EXPECT_EQ(Eval(filter, "t.filterAction"), "0");
}

TEST_F(ToLua, ChildObjectsAreTablesUnderTheirElementNames) {
    CPacketFilter filter;
    filter.m_SourceInfo.m_Ip = "192.0.2.1";
    EXPECT_EQ(Eval(filter, "t.SourceInfo.ip .. t.DestInfo.ip .. t.Flags.icmpType"), "192.0.2.1-1");
}

TEST_F(ToLua, AListIsAnArray) {
    CSSLCredentials list;
    ASSERT_TRUE(policy_test::Read(
        list,
        "<SSLCredentials><SSLCredential id=\"5\"/><SSLCredential id=\"3\"/></SSLCredentials>"));
    EXPECT_EQ(Eval(list, "#t .. ':' .. t[1].id .. ',' .. t[2].id"), "2:5,3");
}

TEST_F(ToLua, AnEmptyListIsAnEmptyTable) {
    const CSSLCredentials list;
    EXPECT_EQ(Eval(list, "type(t) .. tostring(next(t))"), "tablenil");
}

TEST_F(ToLua, SecretsAreLeftOut) {
    CPayloadFilter filter;
    filter.m_Rules = wxString("secret");
    EXPECT_EQ(Eval(filter, "t.rules"), "nil");
    CConnectionType type;
    type.m_Engine = wxString("secret");
    EXPECT_EQ(Eval(type, "t.engine"), "nil");
}

TEST_F(ToLua, AStringWithAZeroCharacterIsWhole) {
    CSSLCredential credential;
    credential.m_Details = wxString("a\0b", 3);
    EXPECT_EQ(Eval(credential, "#t.details"), "3");
}

TEST_F(ToLua, LeavesNothingButTheTable) {
    lua_pushinteger(m_Lua, 42);
    CPacketFilter().toLua(m_Lua);
    ASSERT_EQ(lua_gettop(m_Lua), 2);
    EXPECT_TRUE(lua_istable(m_Lua, 2));
}

TEST_F(ToLua, WorksOnAStackThatIsFull) {
    while (lua_gettop(m_Lua) < 1000) {
        ASSERT_TRUE(lua_checkstack(m_Lua, 1));
        lua_pushnil(m_Lua);
    }
    CPacketFilter().toLua(m_Lua);
    EXPECT_TRUE(lua_istable(m_Lua, -1));
}

TEST_F(ToLua, RunningOutOfMemoryAtAnyPointIsALuaErrorAndLeavesTheObjectWhole) {
    CSSLCredentials list;
    ASSERT_TRUE(policy_test::Read(
        list,
        "<SSLCredentials><SSLCredential id=\"5\" name=\"a name that Lua must allocate, and"
        " that is longer than forty characters\"/></SSLCredentials>"));
    lua_gc(m_Lua, LUA_GCSTOP, 0);
    int failures = 0;
    int result = LUA_ERRMEM;
    for (int budget = 0; result != LUA_OK; ++budget) {
        ASSERT_LT(budget, 1000);
        m_Budget.left = budget;
        result = Push(list);
        m_Budget.left = -1;
        if (result != LUA_OK) {
            ++failures;
            EXPECT_TRUE(lua_isstring(m_Lua, -1));
            lua_settop(m_Lua, 0);
        }
    }
    EXPECT_GT(failures, 3);
    EXPECT_EQ(Eval(list, "t[1].id"), "5");
}

}  // namespace
