// The small enumerations of the monitor: a three-valued answer, the fault tolerance, the assertiveness level.
#pragma once

enum Zarn_FUZZY_CHOICE
{
    Zarn_FUZZY_UNKNOWN = -1,
    Zarn_FUZZY_NO = 0,
    Zarn_FUZZY_YES = 1,
};

// What a held DX code does to the next operation: NONE keeps it (sticky), FORGIVING erases it and
// proceeds. RESERVED behaves as NONE, and the setter never stores it.
enum Zarn_TOLERANCE
{
    Zarn_TOLERANCE_UNSET = -1,
    Zarn_TOLERANCE_NONE = 0,
    Zarn_TOLERANCE_RESERVED = 1,
    Zarn_TOLERANCE_FORGIVING = 2,
};

// An assertiveness level, 0 to 10. Stored and handed back; no logic branches on it.
using Zarn_DX_MODE = int;
