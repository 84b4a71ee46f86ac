#include "foundation/SystemTime.h"

#include "foundation/UTL_String.h"
#include "platform/CRuntime.h"

namespace zr {

SystemTime::SystemTime() : m_time(0), m_local()
{
    _time64(&m_time);
    // A failed conversion is not an error of the stamp: the fields show what the library left.
    _localtime64_s(&m_local, &m_time);
}

SystemTime::SystemTime(long long time) : m_time(time), m_local()
{
    _localtime64_s(&m_local, &m_time);
}

int SystemTime::Year() const
{
    return m_local.tm_year + 1900;
}

int SystemTime::Month() const
{
    return m_local.tm_mon + 1;
}

int SystemTime::Day() const
{
    return m_local.tm_mday;
}

int SystemTime::Hour() const
{
    return m_local.tm_hour;
}

int SystemTime::Min() const
{
    return m_local.tm_min;
}

int SystemTime::Sec() const
{
    return m_local.tm_sec;
}

SystemTime::operator long long() const
{
    return m_time;
}

SystemTime::operator UTL_String() const
{
    return UTL_String(256, L"%.4d-%.2d-%.2d_%.2d-%.2d-%.2d", Year(), Month(), Day(), Hour(), Min(), Sec());
}

} // namespace zr
