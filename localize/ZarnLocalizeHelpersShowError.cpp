// The internal error box: version and error number, the caller's detail and the module's text.
#include "localize/ZarnLocalizeHelpers.h"

#include "platform/CRuntime.h"
#include "platform/MessageBox.h"
#include "platform/Modules.h"

#include <cwchar>

namespace {

// The box's text and caption, terminator included.
constexpr std::size_t kBoxTextQty = 512;
constexpr int kFormatQty = 64;
constexpr unsigned long long kVersionQty = 48;
constexpr int kProductNameQty = 260;

// Appends `text` when it fits with its terminator; false otherwise.
bool appendIfRoom(wchar_t* box, const wchar_t* text)
{
    const std::size_t used = std::wcslen(box);
    const std::size_t added = std::wcslen(text);
    if (used + added >= kBoxTextQty)
        return false;
    std::wmemcpy(box + used, text, added + 1);
    return true;
}

} // namespace

ZarnLocalizeHelpers::ErrorDisplayFunction ZarnLocalizeHelpers::m_errorDisplay = &MessageBoxW;

ZarnLocalizeHelpers::ErrorDisplayFunction ZarnLocalizeHelpers::setErrorDisplayFunction(ErrorDisplayFunction display)
{
    ErrorDisplayFunction previous = m_errorDisplay;
    m_errorDisplay = display != nullptr ? display : &MessageBoxW;
    return previous;
}

int ZarnLocalizeHelpers::showError(int errorNumber, HINSTANCE module, const wchar_t* detail, HWND parent,
                                   const wchar_t* caption, unsigned int boxType)
{
    try {
        HINSTANCE self = getSelfResourceModuleSafe(module);
        wchar_t version[kVersionQty] = {};
        if (!extractModuleVerValueSFI_FVer(self, version, kVersionQty, nullptr, L"StringFileInfo", L'\\'))
            std::wcscpy(version, L"0");

        wchar_t format[kFormatQty] = {};
        if (!loadIntrinsicString(13002, format, kFormatQty))
            std::wcscpy(format, L"Internal Error %ls.%0*d");
        // Formatting stops one short of the buffer, so an exact fit still ends in its terminator.
        wchar_t text[kBoxTextQty] = {};
        if (_snwprintf(text, kBoxTextQty - 1, format, version, 3, errorNumber % 1000) < 1)
            text[0] = L'\0';
        if (detail != nullptr)
            appendIfRoom(text, detail);
        if (text[0] != L'\0')
            appendIfRoom(text, L"\n\n");

        if (module == nullptr || errorNumber < 1)
            throw 1;
        const std::size_t used = std::wcslen(text);
        if (LoadStringW(module, static_cast<UINT>(errorNumber), text + used, static_cast<int>(kBoxTextQty - used)) < 1)
            throw 2;

        wchar_t boxCaption[kBoxTextQty] = {};
        if (caption != nullptr && caption[0] != L'\0') {
            // The caller's caption passes through the formatter, so "%%" in it shows as "%".
            if (std::wcslen(caption) < kBoxTextQty && _snwprintf(boxCaption, kBoxTextQty - 1, caption) < 1)
                boxCaption[0] = L'\0';
        } else {
            wchar_t name[kProductNameQty] = {};
            extractModuleVerValueSFI_ProdNm(self, name, kProductNameQty, nullptr, L"StringFileInfo", L'\\');
            if (name[0] == L'\0' && !loadIntrinsicString(14006, name, kProductNameQty))
                std::wcscpy(name, L" ");
            wchar_t captionFormat[kFormatQty] = {};
            if (!loadIntrinsicString(13001, captionFormat, kFormatQty))
                std::wcscpy(captionFormat, L"%ls Error");
            if (captionFormat[0] == L'\0')
                std::wcsncpy(boxCaption, name, kBoxTextQty - 1);
            else if (_snwprintf(boxCaption, kBoxTextQty - 1, captionFormat, name) < 1)
                boxCaption[0] = L'\0';
        }

        const int answer = m_errorDisplay(parent, text, boxCaption[0] != L'\0' ? boxCaption : nullptr, boxType);
        if (answer < 1)
            throw 3;
        return answer;
    } catch (...) {
        return 0;
    }
}
