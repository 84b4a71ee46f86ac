// Version data of modules: the block, its translation list and its StringFileInfo values.
#include "localize/ZarnLocalizeHelpers.h"

#include "platform/CRuntime.h"
#include "platform/Modules.h"
#include "platform/VersionResources.h"

#include <cstring>
#include <cwchar>
#include <new>

namespace {

constexpr unsigned kModuleFileNameQty = 260;
constexpr unsigned kAddressQty = 260;
constexpr unsigned kTranslationKeyQty = 16;
constexpr int kValueNameQty = 48;
constexpr unsigned kValueNameIdFirst = 13003;
constexpr unsigned kValueNameIdLast = 13011;
const wchar_t kTranslationBlock[] = L"\\VarFileInfo\\Translation";

bool isEmpty(const wchar_t* text)
{
    return text == nullptr || text[0] == L'\0';
}

void zeroBuffer(wchar_t* buffer, unsigned long long capacity)
{
    if (buffer != nullptr && capacity >= 1)
        std::wmemset(buffer, L'\0', capacity);
}

// The module's file path into `name` (kModuleFileNameQty characters); a path cut to fit fails.
bool learnModuleFileName(HINSTANCE module, wchar_t* name)
{
    if (module == nullptr)
        return false;
    const DWORD count = GetModuleFileNameW(module, name, kModuleFileNameQty);
    return count > 0 && count < kModuleFileNameQty;
}

// The block of `file` for the time of one operation; freed in every case.
class ScopedVerBlock
{
public:
    explicit ScopedVerBlock(const wchar_t* file) : m_loaded(ZarnLocalizeHelpers::extractModuleVerBlock(file, m_block))
    {
    }
    ~ScopedVerBlock() { ZarnLocalizeHelpers::deleteModuleVerBlock(m_block); }
    ScopedVerBlock(const ScopedVerBlock&) = delete;
    ScopedVerBlock& operator=(const ScopedVerBlock&) = delete;
    bool loaded() const { return m_loaded; }
    void*& block() { return m_block; }

private:
    void* m_block = nullptr; // declared first: the initialiser of m_loaded fills it
    bool m_loaded;
};

} // namespace

// ---- The block ----------------------------------------------------------------------------------

bool ZarnLocalizeHelpers::extractModuleVerBlock(const wchar_t* file, void*& block)
{
    if (isEmpty(file))
        return false;
    deleteModuleVerBlock(block);
    try {
        DWORD handle = 0;
        const DWORD size = GetFileVersionInfoSizeW(file, &handle);
        if (size == 0)
            throw 1;
        block = new (std::nothrow) unsigned char[size];
        if (block == nullptr)
            throw 2;
        std::memset(block, 0, size);
        if (!GetFileVersionInfoW(file, handle, size, block))
            throw 3;
        return true;
    } catch (...) {
        deleteModuleVerBlock(block);
        return false;
    }
}

bool ZarnLocalizeHelpers::extractModuleVerBlock(HINSTANCE module, void*& block)
{
    wchar_t name[kModuleFileNameQty] = {};
    if (!learnModuleFileName(module, name))
        return false;
    return extractModuleVerBlock(name, block);
}

void ZarnLocalizeHelpers::deleteModuleVerBlock(void*& block)
{
    if (block == nullptr)
        return;
    delete[] static_cast<unsigned char*>(block);
    block = nullptr;
}

// ---- Translations -------------------------------------------------------------------------------

bool ZarnLocalizeHelpers::extractModuleVerTranslation(void*& block, unsigned short& language,
                                                      unsigned short& codePage, const wchar_t* translationBlock)
{
    language = 0;
    codePage = 0;
    if (block == nullptr || isEmpty(translationBlock))
        return false;
    void* value = nullptr;
    UINT bytes = 0;
    if (!VerQueryValueW(block, translationBlock, &value, &bytes) || value == nullptr || bytes < 4)
        return false;
    const unsigned short* words = static_cast<const unsigned short*>(value);
    language = words[0];
    codePage = words[1];
    return true;
}

bool ZarnLocalizeHelpers::extractModuleVerTranslation(const wchar_t* file, unsigned short& language,
                                                      unsigned short& codePage, const wchar_t* translationBlock)
{
    language = 0;
    codePage = 0;
    ScopedVerBlock loaded(file);
    return loaded.loaded() && extractModuleVerTranslation(loaded.block(), language, codePage, translationBlock);
}

bool ZarnLocalizeHelpers::extractModuleVerTranslation(HINSTANCE module, unsigned short& language,
                                                      unsigned short& codePage, const wchar_t* translationBlock)
{
    language = 0;
    codePage = 0;
    wchar_t name[kModuleFileNameQty] = {};
    return learnModuleFileName(module, name) && extractModuleVerTranslation(name, language, codePage, translationBlock);
}

bool ZarnLocalizeHelpers::extractModuleVerTranslation(void*& block, wchar_t* buffer, unsigned long long capacity,
                                                      const wchar_t* translationBlock)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    unsigned short language = 0;
    unsigned short codePage = 0;
    if (!extractModuleVerTranslation(block, language, codePage, translationBlock)
        || _snwprintf(buffer, capacity - 1, L"%04X%04X", language, codePage) < 1) {
        zeroBuffer(buffer, capacity);
        return false;
    }
    return true;
}

bool ZarnLocalizeHelpers::extractModuleVerTranslation(const wchar_t* file, wchar_t* buffer,
                                                      unsigned long long capacity, const wchar_t* translationBlock)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    unsigned short language = 0;
    unsigned short codePage = 0;
    if (!extractModuleVerTranslation(file, language, codePage, translationBlock))
        return false;
    // Formatted into 8 characters whatever `capacity` says, and the count is not looked at:
    // deliberate, every caller passes a key buffer of 16, whose zeroed tail terminates the key.
    _snwprintf(buffer, 8, L"%04X%04X", language, codePage);
    return true;
}

bool ZarnLocalizeHelpers::extractModuleVerTranslation(HINSTANCE module, wchar_t* buffer,
                                                      unsigned long long capacity, const wchar_t* translationBlock)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    wchar_t name[kModuleFileNameQty] = {};
    return learnModuleFileName(module, name) && extractModuleVerTranslation(name, buffer, capacity, translationBlock);
}

// ---- Values -------------------------------------------------------------------------------------

bool ZarnLocalizeHelpers::extractModuleVerValue_(void*& block, wchar_t* buffer, unsigned long long capacity,
                                                 const wchar_t* address)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    if (block == nullptr || isEmpty(address))
        return false;
    void* value = nullptr;
    UINT characters = 0;
    if (!VerQueryValueW(block, address, &value, &characters) || value == nullptr || characters == 0)
        return false;
    // The text stays in the block; only a copy leaves.
    const unsigned long long count = characters < capacity - 1 ? characters : capacity - 1;
    std::wcsncpy(buffer, static_cast<const wchar_t*>(value), count);
    buffer[count] = L'\0';
    return true;
}

bool ZarnLocalizeHelpers::extractModuleVerValue(void*& block, wchar_t* buffer, unsigned long long capacity,
                                                const wchar_t* valueName, const wchar_t* translation,
                                                const wchar_t* infoBlock, wchar_t separator)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    if (buffer[0] != L'\0')
        zeroBuffer(buffer, capacity);
    try {
        if (block == nullptr || isEmpty(valueName) || isEmpty(infoBlock) || separator == L'\0')
            throw 1;
        // A key that the caller gives is used unchecked.
        wchar_t key[kTranslationKeyQty] = {};
        if (isEmpty(translation)) {
            if (!extractModuleVerTranslation(block, key, kTranslationKeyQty, kTranslationBlock))
                throw 2;
            translation = key;
        }
        wchar_t address[kAddressQty] = {};
        if (_snwprintf(address, kAddressQty - 1, L"%c%s%c%s%c%s", separator, infoBlock, separator, translation,
                       separator, valueName)
            < 1)
            throw 3;
        if (!extractModuleVerValue_(block, buffer, capacity, address))
            throw 4;
        return true;
    } catch (...) {
        zeroBuffer(buffer, capacity);
        return false;
    }
}

bool ZarnLocalizeHelpers::extractModuleVerValue(const wchar_t* file, wchar_t* buffer, unsigned long long capacity,
                                                const wchar_t* valueName, const wchar_t* translation,
                                                const wchar_t* infoBlock, wchar_t separator)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    if (isEmpty(file) || isEmpty(valueName) || isEmpty(infoBlock) || separator == L'\0')
        return false;
    ScopedVerBlock loaded(file);
    return loaded.loaded()
        && extractModuleVerValue(loaded.block(), buffer, capacity, valueName, translation, infoBlock, separator);
}

bool ZarnLocalizeHelpers::extractModuleVerValue(HINSTANCE module, wchar_t* buffer, unsigned long long capacity,
                                                const wchar_t* valueName, const wchar_t* translation,
                                                const wchar_t* infoBlock, wchar_t separator)
{
    if (buffer == nullptr || capacity < 1)
        return false;
    zeroBuffer(buffer, capacity);
    wchar_t name[kModuleFileNameQty] = {};
    if (!learnModuleFileName(module, name))
        return false;
    // The system names the logon process's file in the NT form "\??\C:\...", which the version
    // reader does not open; only this overload, and only for that process, drops the prefix.
    const wchar_t* file = name;
    if (std::wcsstr(name, L"Logon.exe") != nullptr && std::wcsncmp(name, L"\\??\\", 4) == 0)
        file += 4;
    return extractModuleVerValue(file, buffer, capacity, valueName, translation, infoBlock, separator);
}

// ---- Values named by the built-in table -----------------------------------------------------------

namespace {

// The value name of `id` from the built-in table; false for an id outside the StringFileInfo names.
bool learnValueName(unsigned int id, wchar_t (&name)[kValueNameQty])
{
    return id >= kValueNameIdFirst && id <= kValueNameIdLast
        && ZarnLocalizeHelpers::loadIntrinsicString(id, name, kValueNameQty);
}

} // namespace

bool ZarnLocalizeHelpers::extractModuleVerValueSFI_(void*& block, wchar_t* buffer, unsigned long long capacity,
                                                    unsigned int valueNameId, const wchar_t* translation,
                                                    const wchar_t* infoBlock, wchar_t separator)
{
    wchar_t name[kValueNameQty] = {};
    if (!learnValueName(valueNameId, name)) {
        zeroBuffer(buffer, capacity);
        return false;
    }
    return extractModuleVerValue(block, buffer, capacity, name, translation, infoBlock, separator);
}

bool ZarnLocalizeHelpers::extractModuleVerValueSFI_(const wchar_t* file, wchar_t* buffer,
                                                    unsigned long long capacity, unsigned int valueNameId,
                                                    const wchar_t* translation, const wchar_t* infoBlock,
                                                    wchar_t separator)
{
    wchar_t name[kValueNameQty] = {};
    if (!learnValueName(valueNameId, name)) {
        zeroBuffer(buffer, capacity);
        return false;
    }
    return extractModuleVerValue(file, buffer, capacity, name, translation, infoBlock, separator);
}

bool ZarnLocalizeHelpers::extractModuleVerValueSFI_(HINSTANCE module, wchar_t* buffer,
                                                    unsigned long long capacity, unsigned int valueNameId,
                                                    const wchar_t* translation, const wchar_t* infoBlock,
                                                    wchar_t separator)
{
    wchar_t name[kValueNameQty] = {};
    if (!learnValueName(valueNameId, name)) {
        zeroBuffer(buffer, capacity);
        return false;
    }
    return extractModuleVerValue(module, buffer, capacity, name, translation, infoBlock, separator);
}

#define ZARN_VER_VALUE_SFI_WRAPPER(name, id, Key)                                                                    \
    bool ZarnLocalizeHelpers::name(Key first, wchar_t* buffer, unsigned long long capacity,                          \
                                   const wchar_t* translation, const wchar_t* infoBlock, wchar_t separator)          \
    {                                                                                                                \
        return extractModuleVerValueSFI_(first, buffer, capacity, id, translation, infoBlock, separator);            \
    }
#define ZARN_VER_VALUE_SFI_WRAPPERS(name, id)                                                                        \
    ZARN_VER_VALUE_SFI_WRAPPER(name, id, HINSTANCE)                                                                  \
    ZARN_VER_VALUE_SFI_WRAPPER(name, id, const wchar_t*)                                                             \
    ZARN_VER_VALUE_SFI_WRAPPER(name, id, void*&)

ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_CompNm, 13003)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_FDscrp, 13004)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_FVer, 13005)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_IntrnNm, 13006)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_LegalCN, 13007)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_LegalTM, 13008)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_OrigFNm, 13009)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_ProdNm, 13010)
ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_ProdVer, 13011)

#undef ZARN_VER_VALUE_SFI_WRAPPERS
#undef ZARN_VER_VALUE_SFI_WRAPPER

// ---- The product's versions for the form tags -------------------------------------------------------

bool ZarnLocalizeHelpers::obtainVersionZGW(wchar_t* buffer, unsigned long long capacity, Zarn_FORM_TAG tag,
                                           HINSTANCE module)
{
    if (buffer == nullptr || capacity < 2)
        return false;
    buffer[0] = L'\0';
    zeroBuffer(buffer, capacity);

    using Reader = bool (*)(const wchar_t*, wchar_t*, unsigned long long, const wchar_t*, const wchar_t*, wchar_t);
    using ModuleReader = bool (*)(HINSTANCE, wchar_t*, unsigned long long, const wchar_t*, const wchar_t*, wchar_t);
    Reader byFile = nullptr;
    ModuleReader byModule = nullptr;
    if (tag == Zarn_FORM_TAG_FILE_VERSION) {
        byFile = &extractModuleVerValueSFI_FVer;
        byModule = &extractModuleVerValueSFI_FVer;
    } else if (tag == Zarn_FORM_TAG_PRODUCT_VERSION) {
        byFile = &extractModuleVerValueSFI_ProdVer;
        byModule = &extractModuleVerValueSFI_ProdVer;
    } else {
        return false;
    }

    // A product keeps its version in one file, "pv.dll", which wins over the module's own. The
    // version reader finds that name as the loader would: the loaded libpv.so if there is one,
    // else libpv.so in the program's directory, else in the working directory.
    bool obtained = byFile(L"pv.dll", buffer, capacity, nullptr, L"StringFileInfo", L'\\');
    if (!obtained && module != nullptr)
        obtained = byModule(module, buffer, capacity, nullptr, L"StringFileInfo", L'\\');
    if (!obtained)
        buffer[0] = L'\0';
    return obtained;
}
