// A fixed calendar time stamp: a moment in seconds with its local broken-down time, both taken at
// construction. Nothing advances it afterwards.
#pragma once

#include "foundation/IntegerWidths.h"

#include <ctime>

class UTL_String;

namespace zr {

class SystemTime
{
public:
    // The current moment.
    SystemTime();
    // The moment `time`, in seconds since 1 January 1970 UTC.
    explicit SystemTime(long long time);

    // Local calendar fields. A moment the C library cannot convert reports whatever the library
    // left in the broken-down time.
    int Year() const;  // four digits
    int Month() const; // January is 1
    int Day() const;
    int Hour() const;
    int Min() const;
    int Sec() const;

    operator long long() const;
    // The local time as "YYYY-MM-DD_hh-mm-ss".
    operator UTL_String() const;

private:
    i64 m_time;
    std::tm m_local;
};

} // namespace zr
