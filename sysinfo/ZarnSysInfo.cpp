#include "sysinfo/ZarnSysInfo.h"

#include "platform/CRuntime.h"

#include <cwchar>

ZarnSysInfo::ZarnSysInfo() : m_category(nullptr), m_position(0), m_error(0), m_scratch{}, m_updatePosition(true) {}

ZarnSysInfo::~ZarnSysInfo()
{
    delete[] m_category;
}

void ZarnSysInfo::recordCategory(const wchar_t* category)
{
    delete[] m_category;
    m_category = nullptr;
    if (category == nullptr)
        return;
    const size_t length = std::wcslen(category);
    m_category = new wchar_t[length + 1];
    std::wmemcpy(m_category, category, length + 1);
}

bool ZarnSysInfo::getFirstDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    const bool result = getDataPair(0, caption, datum, captionSize, datumSize);
    learnNextPosition();
    return result;
}

bool ZarnSysInfo::getNextDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    const bool result = getDataPair(m_position, caption, datum, captionSize, datumSize);
    learnNextPosition();
    return result;
}

int ZarnSysInfo::getCategory(wchar_t* buffer, int size) const
{
    if (m_category == nullptr)
        return -1;
    const int length = static_cast<int>(std::wcslen(m_category)) + 1;
    if (buffer != nullptr && size >= length)
        std::wmemcpy(buffer, m_category, static_cast<size_t>(length));
    return length;
}

bool ZarnSysInfo::setShouldUpdateCurrentPosition(bool update)
{
    const bool previous = m_updatePosition;
    m_updatePosition = update;
    return previous;
}

bool ZarnSysInfo::formatDataItem(wchar_t* destination, int size, const wchar_t* text)
{
    if (destination != nullptr && text != nullptr && size >= 1) {
        const size_t length = std::wcslen(text);
        if (length < static_cast<size_t>(size)) {
            std::wmemcpy(destination, text, length + 1);
        } else {
            std::wmemcpy(destination, text, static_cast<size_t>(size));
            destination[size - 1] = L'\0';
            if (size > 3)
                std::wmemcpy(destination + size - 4, L"...", 4);
        }
    }
    return m_error == 0;
}

bool ZarnSysInfo::formatDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize,
                                 const wchar_t* captionText, const wchar_t* datumText)
{
    bool result = formatDataItem(caption, captionSize, captionText);
    if (result)
        result = formatDataItem(datum, datumSize, datumText);
    return result && m_error == 0;
}

bool ZarnSysInfo::formatDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize,
                                 const wchar_t* captionText, int value, bool hex)
{
    wchar_t number[20] = {};
    const int length = hex ? _snwprintf(number, 19, L"0x%0*X", 8, static_cast<unsigned>(value))
                           : _snwprintf(number, 19, L"%d", value);
    if (length < 1)
        m_error = kErrorNumberNotFormatted;
    return formatDataPair(caption, datum, captionSize, datumSize, captionText, number) && m_error == 0;
}
