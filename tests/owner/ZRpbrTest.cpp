#include "owner/ZRpbr.h"

#include "OwnerRig.h"

#include <gtest/gtest.h>

#include <QDir>

#include <string>

TEST(ZRpbr, BrandFileOverridesTheBuiltInTextsIdById)
{
    struct Row
    {
        const char* name;
        QByteArray file; // empty: no brand file
        int id;
        const wchar_t* expected; // null: the built-in text, which is not empty
        unsigned long long capacity;
    };
    const Row rows[] = {
        {"no file: built-in", "", ZRpbr::kBrandTextSuiteName, nullptr, 64},
        {"no text for the id", "", 17, L"", 64},
        {"UTF-8 text that holds =", "20=Werk=Stück\n", 20, L"Werk=Stück", 64},
        {"the first line of an id counts", "29=first\r\n29=second\n", 29, L"first", 64},
        {"comments and blank lines", "# 3=no\n\n3=yes\n", 3, L"yes", 64},
        {"an empty text", "16=\n", 16, L"", 64},
        {"ids the file lacks keep theirs", "20=x\n", 19, nullptr, 64},
        {"cut to the capacity", "1=abcdef\n", 1, L"abc", 4},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        if (!row.file.isEmpty())
            ownerRig::writeBrandFile(row.file);
        ZRpbr* brander = ZRpbr::create(ZRpbr::kKindWide);
        ASSERT_NE(brander, nullptr) << ZRpbr::getSelfDX_Code();
        EXPECT_EQ(ZRpbr::getProductBrander(), brander);
        wchar_t buffer[64] = {L'x'};
        const std::wstring text = brander->getBrandText(row.id, buffer, row.capacity);
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
    struct Row
    {
        const char* name;
        int kind;
        QByteArray file; // "/": the brand file is a folder
        bool alive;
        int code;
    };
    const Row rows[] = {
        {"another kind", 1, "", false, 2},           {"one is alive", 2, "", true, 3},
        {"unreadable file", 2, "/", false, 4},       {"a line without =", 2, "20 text\n", false, 5},
        {"a signed id", 2, "+20=text\n", false, 5}, {"an id out of range", 2, "65536=text\n", false, 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        if (row.file == "/")
            QDir().mkdir(ownerRig::brandFile());
        else if (!row.file.isEmpty())
            ownerRig::writeBrandFile(row.file);
        ZRpbr* const alive = row.alive ? ZRpbr::create(ZRpbr::kKindWide) : nullptr;
        EXPECT_EQ(ZRpbr::create(row.kind), nullptr);
        EXPECT_EQ(ZRpbr::getSelfDX_Code(), row.code);
        EXPECT_EQ(ZRpbr::getProductBrander(), alive);
        ZRpbr::destroy();
        QDir().rmdir(ownerRig::brandFile());
    }
}
