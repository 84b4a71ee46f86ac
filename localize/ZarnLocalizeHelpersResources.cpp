// The class's own frame, and the library's own resource module with its strings.
#include "localize/ZarnLocalizeHelpers.h"

#include "foundation/UTL_String.h"
#include "platform/Modules.h"

#include <cwchar>

// Set at start-up from one thread; read without a lock afterwards.
HINSTANCE ZarnLocalizeHelpers::m_selfResModule = nullptr;

ZarnLocalizeHelpers::ZarnLocalizeHelpers()
{
    setMemberVarsToDefaults(true);
}

ZarnLocalizeHelpers::~ZarnLocalizeHelpers()
{
    setMemberVarsToDefaults(true);
}

bool ZarnLocalizeHelpers::setMemberVarsToDefaults(bool)
{
    return true;
}

HINSTANCE ZarnLocalizeHelpers::getSelfResourceModule()
{
    return m_selfResModule;
}

HINSTANCE ZarnLocalizeHelpers::setSelfResourceModule(HINSTANCE module)
{
    HINSTANCE previous = m_selfResModule;
    m_selfResModule = module;
    return previous;
}

bool ZarnLocalizeHelpers::learnSelfResourceModule()
{
    if (m_selfResModule == nullptr)
        m_selfResModule = GetModuleHandleW(L"zmu.dll");
    return m_selfResModule != nullptr;
}

HINSTANCE ZarnLocalizeHelpers::getSelfResourceModuleSafe(HINSTANCE module)
{
    if (module != nullptr)
        return module;
    if (m_selfResModule == nullptr)
        learnSelfResourceModule();
    return m_selfResModule;
}

bool ZarnLocalizeHelpers::loadIntrinsicString(unsigned int id, wchar_t* buffer, int capacity)
{
    if (buffer == nullptr)
        return false;
    buffer[0] = L'\0';
    try {
        if (capacity < 1)
            throw 1;
        HINSTANCE self = getSelfResourceModuleSafe(nullptr);
        if (self == nullptr)
            throw 2;
        const UTL_String text(self, id, static_cast<unsigned>(capacity));
        std::wcsncpy(buffer, text.wideText(), static_cast<std::size_t>(capacity) - 1);
        buffer[capacity - 1] = L'\0';
        return true;
    } catch (...) {
        if (capacity >= 1)
            std::wmemset(buffer, L'\0', static_cast<std::size_t>(capacity));
        return false;
    }
}
