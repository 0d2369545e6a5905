// The shared object as it is shipped.

#include <dlfcn.h>
#include <stdio.h>

#include <string>

#include <gtest/gtest.h>
#include <lua.hpp>

namespace {

TEST(ModuleFileTest, ExportsItsEntryPointAndNothingElse) {
    FILE* listing = popen("nm -D --defined-only " OSTREL_FILE, "r");
    ASSERT_NE(listing, nullptr);
    std::string symbols;
    char word[512];
    while (fscanf(listing, "%*s %*s %511s", word) == 1)
        symbols += std::string(word) + "\n";
    pclose(listing);
    EXPECT_EQ(symbols, "luaopen_ostrel\n");
}

TEST(ModuleFileTest, StaysInMemoryBehindTheLuaState) {
    lua_State* L = luaL_newstate();
    luaL_openlibs(L);
    ASSERT_EQ(luaL_dostring(L, "return package.loadlib('" OSTREL_FILE "', 'luaopen_ostrel')()"),
              LUA_OK)
        << lua_tostring(L, -1);
    EXPECT_TRUE(lua_toboolean(L, -1));
    lua_close(L);
    EXPECT_NE(dlopen("ostrel.so", RTLD_NOLOAD | RTLD_NOW), nullptr);
}

}  // namespace
