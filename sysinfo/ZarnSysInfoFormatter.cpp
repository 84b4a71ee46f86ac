#include "sysinfo/ZarnSysInfoFormatter.h"

#include <cwchar>
#include <new>

ZarnSysInfoFormatter::ZarnSysInfoFormatter()
    : m_captionPrefixCount(0), m_captionPrefixes(nullptr), m_captionSuffixCount(0), m_captionSuffixes(nullptr),
      m_currentCaptionPrefix(0), m_currentCaptionSuffix(0), m_currentDatumPrefix(0), m_currentDatumSuffix(0),
      m_datumPrefixCount(0), m_datumPrefixes(nullptr), m_datumSuffixCount(0), m_datumSuffixes(nullptr), m_error(0),
      m_sysInfo(nullptr)
{
}

ZarnSysInfoFormatter::~ZarnSysInfoFormatter()
{
    free_Affixes(m_captionPrefixCount, m_captionPrefixes);
    free_Affixes(m_captionSuffixCount, m_captionSuffixes);
    free_Affixes(m_datumPrefixCount, m_datumPrefixes);
    free_Affixes(m_datumSuffixCount, m_datumSuffixes);
}

void ZarnSysInfoFormatter::free_Affixes(int& count, wchar_t**& list)
{
    if (list != nullptr) {
        for (int index = 0; index < count; ++index)
            delete[] list[index];
        delete[] list;
    }
    list = nullptr;
    count = 0;
}

int ZarnSysInfoFormatter::addCaptionPrefix(const wchar_t* text)
{
    return addAffix(m_captionPrefixCount, m_captionPrefixes, text);
}

int ZarnSysInfoFormatter::addCaptionSuffix(const wchar_t* text)
{
    return addAffix(m_captionSuffixCount, m_captionSuffixes, text);
}

int ZarnSysInfoFormatter::addDatumPrefix(const wchar_t* text)
{
    return addAffix(m_datumPrefixCount, m_datumPrefixes, text);
}

int ZarnSysInfoFormatter::addDatumSuffix(const wchar_t* text)
{
    return addAffix(m_datumSuffixCount, m_datumSuffixes, text);
}

ZarnSysInfo* ZarnSysInfoFormatter::setSysInfo(ZarnSysInfo* source)
{
    ZarnSysInfo* const previous = m_sysInfo;
    m_sysInfo = source;
    return previous;
}

int ZarnSysInfoFormatter::addAffix(int& count, wchar_t**& list, const wchar_t* text)
{
    m_error = 0;
    wchar_t** grown = nullptr;
    wchar_t* copy = nullptr;
    int grownCount = 0;
    try {
        if (text == nullptr)
            throw kErrorNullText;
        grownCount = count + 1 > 1 ? count + 1 : 1;
        grown = new (std::nothrow) wchar_t*[static_cast<size_t>(grownCount)]();
        if (grown == nullptr)
            throw kErrorListNotAllocated;
        const size_t length = std::wcslen(text);
        copy = new (std::nothrow) wchar_t[length + 1];
        if (copy == nullptr)
            throw kErrorTextNotAllocated;
        std::wmemcpy(copy, text, length + 1);
    } catch (int code) {
        m_error = code;
    } catch (...) {
        m_error = kErrorAddFailed;
    }
    if (m_error != 0) {
        delete[] copy;
        delete[] grown;
        return -1;
    }

    grown[grownCount - 1] = copy;
    for (int index = 0; index < count && list != nullptr; ++index)
        grown[index] = list[index];
    delete[] list;
    list = grown;
    count = grownCount;
    return grownCount;
}

int ZarnSysInfoFormatter::copyString(wchar_t* destination, int size, const wchar_t* text)
{
    if (text == nullptr)
        return -1;
    const int length = static_cast<int>(std::wcslen(text)) + 1;
    if (destination != nullptr && size >= length)
        std::wmemcpy(destination, text, static_cast<size_t>(length));
    return length;
}

wchar_t* ZarnSysInfoFormatter::getNextAffix(int count, int& current, wchar_t** list)
{
    // A list exists only with at least one entry; a count below 1 is treated as no list.
    if (list == nullptr || count < 1)
        return nullptr;
    if (current >= count || current < 0)
        current = 0;
    wchar_t* const affix = list[current];
    if (++current >= count)
        current = 0;
    return affix;
}

int ZarnSysInfoFormatter::getNextCaptionPrefix(wchar_t* buffer, int size)
{
    return copyString(buffer, size, getNextAffix(m_captionPrefixCount, m_currentCaptionPrefix, m_captionPrefixes));
}

int ZarnSysInfoFormatter::getNextCaptionSuffix(wchar_t* buffer, int size)
{
    return copyString(buffer, size, getNextAffix(m_captionSuffixCount, m_currentCaptionSuffix, m_captionSuffixes));
}

int ZarnSysInfoFormatter::getNextDatumPrefix(wchar_t* buffer, int size)
{
    return copyString(buffer, size, getNextAffix(m_datumPrefixCount, m_currentDatumPrefix, m_datumPrefixes));
}

int ZarnSysInfoFormatter::getNextDatumSuffix(wchar_t* buffer, int size)
{
    return copyString(buffer, size, getNextAffix(m_datumSuffixCount, m_currentDatumSuffix, m_datumSuffixes));
}

void ZarnSysInfoFormatter::resetCurrentAffixes()
{
    m_currentCaptionPrefix = 0;
    m_currentCaptionSuffix = 0;
    m_currentDatumPrefix = 0;
    m_currentDatumSuffix = 0;
}
