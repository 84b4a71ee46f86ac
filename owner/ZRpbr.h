// The product brander: the one object of the process that knows the product's branded texts
// (company, web site, module and suite names), read from the product's brand file. It is part of
// libzmu: the product's "zbr4u.dll" is this library here, and no file of that name is loaded.
//
// The brand file is UTF-8 text, one "id=text" line per text: a decimal id from 0 to 65535, "=",
// and the text up to the line's end (it may hold "=" and be empty). Blank lines and lines that
// begin with "#" are skipped; a "\r" before a line feed is dropped; for an id given twice the
// first line counts. The file is the one that ZMU_BRAND_FILE names, else "zbr4u.brand" beside
// the program. Without a file the built-in texts below answer; a file that exists answers for
// the ids it gives and the built-in texts for the rest.
#pragma once

#include <atomic>

class ZRpbr
{
public:
    // The ids that the library asks for, with a built-in text each.
    static constexpr int kBrandTextCompanyKnowBase = 0;
    static constexpr int kBrandTextCompanyNameLong = 1;
    static constexpr int kBrandTextCompanyNameShort = 2;
    static constexpr int kBrandTextCompanyWebsite = 3;
    static constexpr int kBrandTextProductName = 16;
    static constexpr int kBrandTextModuleNameCM = 18;
    static constexpr int kBrandTextModuleNameLogon = 19;
    static constexpr int kBrandTextModuleNamePW = 20;
    static constexpr int kBrandTextSuiteName = 29;

    // The kind of texts create serves: wide texts.
    static constexpr int kKindWide = 2;

    // The brander alive in this process, or null.
    static ZRpbr* getProductBrander();
    // Makes the process's brander from the brand file. Null on failure, with the reason in
    // getSelfDX_Code: 2 a kind other than kKindWide, 3 one is alive already, 4 the brand file
    // exists but can't be read, 5 it holds a line that is not "id=text", 1 anything else.
    static ZRpbr* create(int kind);
    // The status of the last create; 0 after a success.
    static int getSelfDX_Code();
    // Destroys the process's brander, if there is one.
    static void destroy();

    // The file that create reads: ZMU_BRAND_FILE if set and not empty, else "zbr4u.brand" in the
    // program's directory.
    static const wchar_t* getBrandFileName(wchar_t* buffer, unsigned long long capacity);

    // Virtual operations in slot order: the destructor, then getBrandText.
protected:
    virtual ~ZRpbr();

public:
    // Text `id` into `buffer`, cut to capacity - 1 characters and terminated; an id without a text
    // gives the empty string. Returns `buffer` (null stays null; a capacity of 0 writes nothing).
    virtual wchar_t* getBrandText(int id, wchar_t* buffer, unsigned long long capacity) const;

protected:
    ZRpbr();

private:
    struct Texts;

    ZRpbr(const ZRpbr&) = delete;
    ZRpbr& operator=(const ZRpbr&) = delete;

    Texts* m_texts;

    static std::atomic<ZRpbr*> s_brander;
    static int s_selfDX_Code;
};
