// Static helpers of the library: numbers and time in the user's locale, time record mapping,
// environment expansion, the library's own resource module, module version data and the
// internal error box. Every operation catches its own failures and answers with a neutral result.
#pragma once

#include "log/ZarnFormEnums.h"
#include "platform/TimeRecords.h"
#include "platform/WinTypes.h"

#include <ctime>

class ZarnLocalizeHelpers
{
public:
    // The shape of MessageBoxW: what showError hands its composed text to.
    using ErrorDisplayFunction = int (*)(HWND parent, const wchar_t* text, const wchar_t* caption, UINT type);

    ZarnLocalizeHelpers();
    // Does nothing and returns true; the class has no instance data.
    virtual bool setMemberVarsToDefaults(bool);
    virtual ~ZarnLocalizeHelpers();

    // ---- Numbers in the user's locale (each call runs setlocale(LC_ALL, "") and leaves it) ----

    // The value with the locale's digit grouping and negative sign; returns the length written,
    // 0 on failure with the buffer zeroed. The length must be below `capacity`.
    static unsigned long long convertIntToPunctuatedStrA(long long value, char* buffer, unsigned long long capacity);
    static unsigned long long convertIntToPunctuatedStrW(long long value, wchar_t* buffer, unsigned long long capacity);
    // Reads at most `length` characters: blanks, a sign, digits with group marks anywhere. Needs
    // one digit; on failure `value` is 0. The wide form reads the whole text (1 to 63 characters).
    static bool convertPunctuatedStrToIntA(char* text, unsigned long long length, long long& value);
    static bool convertPunctuatedStrToIntW(wchar_t* text, unsigned long long length, long long& value);

    // ---- Environment ----

    // Expands %NAME% references into `destination`, pass after pass until the length stays the
    // same; `scratch` is a work buffer of `limit` characters. Returns `destination` with `length`
    // its length, or null with `length` 0.
    static char* expandEnvironmentVarStrsA(char* source, char* destination, char* scratch, unsigned long long& length,
                                           unsigned long limit);
    static wchar_t* expandEnvironmentVarStrsW(wchar_t* source, wchar_t* destination, wchar_t* scratch,
                                              unsigned long long& length, unsigned long limit);

    // ---- Time records (each zeroes its output first) ----

    static tm& mapFILETIME_to_tm(const FILETIME& fileTime, tm& out, int isDst);
    static tm& mapSYSTEMTIME_to_tm(const SYSTEMTIME& systemTime, tm& out, int isDst);
    // `time` in seconds since 1970, as local calendar fields; the day of the week stays 0.
    static tm& mapSMTIME_to_tm(long long time, tm& out, int isDst);
    static FILETIME& map_tm_to_FILETIME(const tm& in, FILETIME& out);
    static SYSTEMTIME& map_tm_to_SYSTEMTIME(const tm& in, SYSTEMTIME& out);

    // ---- The library's own resource module ----

    static HINSTANCE getSelfResourceModule();
    // `module` if set, else the library's own module, learnt on first need.
    static HINSTANCE getSelfResourceModuleSafe(HINSTANCE module);
    // Returns the previous value; null makes the next safe read learn it afresh.
    static HINSTANCE setSelfResourceModule(HINSTANCE module);
    static bool learnSelfResourceModule();
    // String `id` of the library's own module into `buffer`; on failure the buffer is zeroed.
    static bool loadIntrinsicString(unsigned int id, wchar_t* buffer, int capacity);

    // ---- Module version data: by module, by file (read without loading), by a caller's block ----

    static bool extractModuleVerBlock(HINSTANCE module, void*& block);
    static bool extractModuleVerBlock(const wchar_t* file, void*& block);
    static void deleteModuleVerBlock(void*& block);

    // The first (language, code page) pair of `translationBlock`, as two words or as the text key
    // "%04X%04X" (the buffer must hold 16 characters).
    static bool extractModuleVerTranslation(HINSTANCE module, unsigned short& language, unsigned short& codePage,
                                            const wchar_t* translationBlock);
    static bool extractModuleVerTranslation(const wchar_t* file, unsigned short& language, unsigned short& codePage,
                                            const wchar_t* translationBlock);
    static bool extractModuleVerTranslation(void*& block, unsigned short& language, unsigned short& codePage,
                                            const wchar_t* translationBlock);
    static bool extractModuleVerTranslation(HINSTANCE module, wchar_t* buffer, unsigned long long capacity,
                                            const wchar_t* translationBlock);
    static bool extractModuleVerTranslation(const wchar_t* file, wchar_t* buffer, unsigned long long capacity,
                                            const wchar_t* translationBlock);
    static bool extractModuleVerTranslation(void*& block, wchar_t* buffer, unsigned long long capacity,
                                            const wchar_t* translationBlock);

    // The value at <separator><infoBlock><separator><translation><separator><valueName>; a null or
    // empty translation is read from the block.
    static bool extractModuleVerValue(HINSTANCE module, wchar_t* buffer, unsigned long long capacity,
                                      const wchar_t* valueName, const wchar_t* translation, const wchar_t* infoBlock,
                                      wchar_t separator);
    static bool extractModuleVerValue(const wchar_t* file, wchar_t* buffer, unsigned long long capacity,
                                      const wchar_t* valueName, const wchar_t* translation, const wchar_t* infoBlock,
                                      wchar_t separator);
    static bool extractModuleVerValue(void*& block, wchar_t* buffer, unsigned long long capacity,
                                      const wchar_t* valueName, const wchar_t* translation, const wchar_t* infoBlock,
                                      wchar_t separator);
    // As above with the value name taken from the built-in table, ids 13003 to 13011.
    static bool extractModuleVerValueSFI_(void*& block, wchar_t* buffer, unsigned long long capacity,
                                          unsigned int valueNameId, const wchar_t* translation,
                                          const wchar_t* infoBlock, wchar_t separator);

    // The StringFileInfo values by name, for every way of naming the module.
#define ZARN_VER_VALUE_SFI_WRAPPERS(name)                                                                            \
    static bool name(HINSTANCE module, wchar_t* buffer, unsigned long long capacity, const wchar_t* translation,    \
                     const wchar_t* infoBlock, wchar_t separator);                                                  \
    static bool name(const wchar_t* file, wchar_t* buffer, unsigned long long capacity, const wchar_t* translation, \
                     const wchar_t* infoBlock, wchar_t separator);                                                  \
    static bool name(void*& block, wchar_t* buffer, unsigned long long capacity, const wchar_t* translation,        \
                     const wchar_t* infoBlock, wchar_t separator);
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_CompNm)  // 13003 CompanyName
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_FDscrp)  // 13004 FileDescription
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_FVer)    // 13005 FileVersion
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_IntrnNm) // 13006 InternalName
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_LegalCN) // 13007 LegalCopyright
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_LegalTM) // 13008 LegalTrademarks
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_OrigFNm) // 13009 OriginalFilename
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_ProdNm)  // 13010 ProductName
    ZARN_VER_VALUE_SFI_WRAPPERS(extractModuleVerValueSFI_ProdVer) // 13011 ProductVersion
#undef ZARN_VER_VALUE_SFI_WRAPPERS

    // The file or product version for the form tags FILE_VERSION and PRODUCT_VERSION: the one of
    // "pv.dll" first, else the one of `module`.
    static bool obtainVersionZGW(wchar_t* buffer, unsigned long long capacity, Zarn_FORM_TAG tag, HINSTANCE module);

    // ---- Error presentation ----

    // Shows "Internal Error <file version>.<errorNumber mod 1000>", `detail` and string
    // `errorNumber` of `module` through the display function; returns its answer, 0 on failure.
    static int showError(int errorNumber, HINSTANCE module, const wchar_t* detail, HWND parent, const wchar_t* caption,
                         unsigned int boxType);
    // The seam through which showError displays (MessageBoxW unless set; null restores it).
    // Returns the previous function.
    static ErrorDisplayFunction setErrorDisplayFunction(ErrorDisplayFunction display);

protected:
    static bool extractModuleVerValue_(void*& block, wchar_t* buffer, unsigned long long capacity,
                                       const wchar_t* address);
    static bool extractModuleVerValueSFI_(HINSTANCE module, wchar_t* buffer, unsigned long long capacity,
                                          unsigned int valueNameId, const wchar_t* translation,
                                          const wchar_t* infoBlock, wchar_t separator);
    static bool extractModuleVerValueSFI_(const wchar_t* file, wchar_t* buffer, unsigned long long capacity,
                                          unsigned int valueNameId, const wchar_t* translation,
                                          const wchar_t* infoBlock, wchar_t separator);

    static HINSTANCE m_selfResModule;
    static ErrorDisplayFunction m_errorDisplay;
};
