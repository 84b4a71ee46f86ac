#include "owner/ZRpbr.h"

#include "OwnerRig.h"

#include <gtest/gtest.h>

#include <string>

TEST(ZRpbr, BrandFileOverridesTheBuiltInTextsIdById)
{
    // expected null: the built-in text, which is not empty
    struct Row { const char* name; QByteArray file; int id; const wchar_t* expected; unsigned long long room = 64; };
    const Row rows[] = {
        {"no file: built-in", "", ZRpbr::kBrandTextSuiteName, nullptr},
        {"no text for the id", "", 17, L""},
        {"UTF-8 text that holds =", "20=Werk=Stück\n", 20, L"Werk=Stück"},
        {"the first line of an id counts", "29=first\r\n29=second\n", 29, L"first"},
        {"comments and blank lines", "# 3=no\n\n3=yes\n", 3, L"yes"},
        {"an empty text", "16=\n", 16, L""},
        {"ids the file lacks keep theirs", "20=x\n", 19, nullptr},
        {"cut to the capacity", "1=abcdef\n", 1, L"abc", 4},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        ownerRig::writeBrandFile(row.file);
        ZRpbr* brander = ZRpbr::create(ZRpbr::kKindWide);
        ASSERT_NE(brander, nullptr) << ZRpbr::getSelfDX_Code();
        EXPECT_EQ(ZRpbr::getProductBrander(), brander);
        wchar_t buffer[64] = {L'x'};
        const std::wstring text = brander->getBrandText(row.id, buffer, row.room);
        if (row.expected == nullptr)
            EXPECT_FALSE(text.empty());
        else
            EXPECT_EQ(text, row.expected);
        ZRpbr::destroy();
        EXPECT_EQ(ZRpbr::getProductBrander(), nullptr);
    }
}

TEST(ZRpbr, CreateRefusesWithItsCodes)
{
    struct Row { const char* name; int kind; QByteArray file; bool alive; int code; }; // file "/": a folder
    const Row rows[] = {
        {"another kind", 1, "", false, 2},           {"one is alive", 2, "", true, 3},
        {"unreadable file", 2, "/", false, 4},       {"a line without =", 2, "20 text\n", false, 5},
        {"a signed id", 2, "+20=text\n", false, 5}, {"an id out of range", 2, "65536=text\n", false, 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        ownerRig::writeBrandFile(row.file);
        ZRpbr* const alive = row.alive ? ZRpbr::create(ZRpbr::kKindWide) : nullptr;
        EXPECT_EQ(ZRpbr::create(row.kind), nullptr);
        EXPECT_EQ(ZRpbr::getSelfDX_Code(), row.code);
        EXPECT_EQ(ZRpbr::getProductBrander(), alive);
        ZRpbr::destroy();
    }
}
