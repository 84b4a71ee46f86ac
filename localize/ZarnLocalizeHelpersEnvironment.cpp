// Expansion of environment references until a pass changes the length no more.
#include "localize/ZarnLocalizeHelpers.h"

#include "platform/Environment.h"

#include <cstring>
#include <cwchar>

namespace {

// The narrow and wide text operations under one name, so the expansion is written once.
std::size_t textLength(const char* text) { return std::strlen(text); }
std::size_t textLength(const wchar_t* text) { return std::wcslen(text); }
void zeroText(char* text, unsigned long count) { std::memset(text, 0, count); }
void zeroText(wchar_t* text, unsigned long count) { std::wmemset(text, L'\0', count); }
void copyText(char* target, const char* source, unsigned long count) { std::strncpy(target, source, count); }
void copyText(wchar_t* target, const wchar_t* source, unsigned long count) { std::wcsncpy(target, source, count); }
DWORD expandOnce(const char* source, char* target, DWORD size)
{
    return ExpandEnvironmentStringsA(source, target, size);
}
DWORD expandOnce(const wchar_t* source, wchar_t* target, DWORD size)
{
    return ExpandEnvironmentStringsW(source, target, size);
}

template <typename Char>
Char* expandUntilStable(Char* source, Char* destination, Char* scratch, unsigned long long& length,
                        unsigned long limit)
{
    length = 0;
    if (source == nullptr || destination == nullptr || scratch == nullptr || limit < 2)
        return nullptr;
    const unsigned long long sourceLength = textLength(source);
    if (sourceLength >= limit)
        return nullptr;
    length = sourceLength;
    if (destination != source)
        zeroText(destination, limit);
    if (scratch != source)
        zeroText(scratch, limit);
    if (length == 0)
        return destination;
    if (destination != source)
        copyText(destination, source, limit);
    if (scratch == source)
        zeroText(scratch, limit);

    const DWORD size = limit > 0xFFFFFFFFUL ? DWORD(0xFFFFFFFFU) : static_cast<DWORD>(limit);
    // A value may hold references of its own, so passes repeat. The loop ends when a pass keeps
    // the length, also if it changed the text: deliberate, it bounds the work on cyclic values.
    for (;;) {
        const DWORD count = expandOnce(destination, scratch, size);
        if (count == 0) {
            length = 0;
            return nullptr;
        }
        zeroText(destination, limit);
        copyText(destination, scratch, limit - 1);
        zeroText(scratch, limit);
        if (count - 1 == length)
            return destination;
        length = count - 1;
    }
}

} // namespace

char* ZarnLocalizeHelpers::expandEnvironmentVarStrsA(char* source, char* destination, char* scratch,
                                                     unsigned long long& length, unsigned long limit)
{
    return expandUntilStable(source, destination, scratch, length, limit);
}

wchar_t* ZarnLocalizeHelpers::expandEnvironmentVarStrsW(wchar_t* source, wchar_t* destination, wchar_t* scratch,
                                                        unsigned long long& length, unsigned long limit)
{
    return expandUntilStable(source, destination, scratch, length, limit);
}
