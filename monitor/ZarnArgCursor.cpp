#include "monitor/ZarnArgCursor.h"

#include <cstdint>
#include <cstring>

ZarnArgCursor::ZarnArgCursor() : m_argV(nullptr), m_args(nullptr) {}

ZarnArgCursor::ZarnArgCursor(char** argV) : m_argV(argV), m_args(nullptr) {}

ZarnArgCursor::ZarnArgCursor(va_list* args) : m_argV(nullptr), m_args(args) {}

bool ZarnArgCursor::isEmpty() const
{
    return m_args == nullptr && (m_argV == nullptr || *m_argV == nullptr);
}

u64 ZarnArgCursor::nextSlot()
{
    if (m_argV == nullptr || *m_argV == nullptr)
        return 0;
    u64 slot = 0;
    std::memcpy(&slot, *m_argV, sizeof slot);
    *m_argV += sizeof slot;
    return slot;
}

u64 ZarnArgCursor::nextSigned()
{
    if (m_args != nullptr)
        return static_cast<u64>(static_cast<i64>(va_arg(*m_args, int)));
    return static_cast<u64>(static_cast<i64>(static_cast<std::int32_t>(nextSlot() & 0xFFFFFFFFu)));
}

u64 ZarnArgCursor::nextUnsigned()
{
    if (m_args != nullptr)
        return static_cast<u64>(va_arg(*m_args, unsigned int));
    return nextSlot() & 0xFFFFFFFFu;
}

u64 ZarnArgCursor::nextString()
{
    if (m_args != nullptr)
        return static_cast<u64>(reinterpret_cast<std::uintptr_t>(va_arg(*m_args, const void*)));
    return nextSlot();
}

void ZarnArgCursor::forget()
{
    m_argV = nullptr;
    m_args = nullptr;
}
