// Secrets leave no trace in memory that is given up.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "velm/SecureString.h"

namespace {

// The block to look at when it is freed, and what was found in it.
struct Watch {
    const void* block = nullptr;
    size_t size = 0;
    bool freed = false;
    bool wiped = false;
};
Watch g_Watch;

void Free(void* block) {
    if (block && block == g_Watch.block) {
        g_Watch.freed = true;
        g_Watch.wiped = true;
        for (size_t i = 0; i < g_Watch.size; ++i) {
            if (static_cast<const volatile char*>(block)[i] != 0) g_Watch.wiped = false;
        }
        g_Watch.block = nullptr;
    }
    std::free(block);
}

}  // namespace

// Every array of the program and its libraries passes through these.
void* operator new[](size_t size) {
    if (void* block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete[](void* block, size_t) noexcept {
    Free(block);
}

namespace {

const wchar_t SECRET[] = L"the secret rules";
constexpr size_t SECRET_LENGTH = 16;

void WatchMemoryOf(const wxSecureString& secret) {
    g_Watch = Watch();
    g_Watch.block = secret.Data();
    g_Watch.size = SECRET_LENGTH * sizeof(wchar_t);
}

TEST(SecureString, KeepsItsText) {
    const wxSecureString secret{wxString(SECRET)};
    EXPECT_EQ(secret.ToString(), SECRET);
    EXPECT_EQ(secret.Length(), SECRET_LENGTH);
    EXPECT_STREQ(secret.Data(), SECRET);
}

TEST(SecureString, IsEmptyWithoutAText) {
    const wxSecureString secret;
    EXPECT_TRUE(secret.IsEmpty());
    EXPECT_STREQ(secret.Data(), L"");
    EXPECT_EQ(secret.ToString(), "");
}

TEST(SecureString, KeepsZeroCharacters) {
    const wxSecureString secret{wxString("a\0b", 3)};
    EXPECT_EQ(secret.Length(), 3u);
    EXPECT_EQ(secret.ToString(), wxString("a\0b", 3));
}

TEST(SecureString, ComparesByText) {
    const wxSecureString secret{wxString("a")};
    EXPECT_EQ(secret, wxSecureString(wxString("a")));
    EXPECT_NE(secret, wxSecureString(wxString("b")));
    EXPECT_NE(secret, wxSecureString(wxString("aa")));
    EXPECT_NE(secret, wxSecureString());
}

TEST(SecureString, CopiesAreIndependent) {
    wxSecureString secret{wxString(SECRET)};
    const wxSecureString copy(secret);
    secret.Scrub();
    EXPECT_EQ(copy.ToString(), SECRET);
}

TEST(SecureString, SurvivesAssignmentToItself) {
    wxSecureString secret{wxString(SECRET)};
    const wxSecureString& same = secret;
    secret = same;
    EXPECT_EQ(secret.ToString(), SECRET);
}

TEST(SecureString, ScrubWipesTheMemory) {
    wxSecureString secret{wxString(SECRET)};
    const wchar_t* memory = secret.Data();
    secret.Scrub();
    EXPECT_TRUE(secret.IsEmpty());
    EXPECT_EQ(std::wstring(memory, SECRET_LENGTH), std::wstring(SECRET_LENGTH, L'\0'));
}

TEST(SecureString, ScrubbedTakesANewText) {
    wxSecureString secret{wxString(SECRET)};
    secret.Scrub();
    secret = wxString("new");
    EXPECT_EQ(secret.ToString(), "new");
}

TEST(SecureString, TheDestructorWipesTheMemory) {
    {
        const wxSecureString secret{wxString(SECRET)};
        WatchMemoryOf(secret);
    }
    EXPECT_TRUE(g_Watch.freed);
    EXPECT_TRUE(g_Watch.wiped);
}

TEST(SecureString, AssignmentWipesTheFormerText) {
    wxSecureString secret{wxString(SECRET)};
    WatchMemoryOf(secret);
    secret = wxString("other");
    EXPECT_TRUE(g_Watch.freed);
    EXPECT_TRUE(g_Watch.wiped);
    wxSecureString third{wxString(SECRET)};
    WatchMemoryOf(third);
    third = secret;
    EXPECT_TRUE(g_Watch.freed);
    EXPECT_TRUE(g_Watch.wiped);
}

// Shows that the watch would notice.
TEST(SecureString, AnArrayThatIsNotWipedIsNoticed) {
    auto* text = new wchar_t[SECRET_LENGTH + 1];
    memcpy(text, SECRET, sizeof(SECRET));
    g_Watch = Watch();
    g_Watch.block = text;
    g_Watch.size = SECRET_LENGTH * sizeof(wchar_t);
    delete[] text;
    EXPECT_TRUE(g_Watch.freed);
    EXPECT_FALSE(g_Watch.wiped);
}

}  // namespace
