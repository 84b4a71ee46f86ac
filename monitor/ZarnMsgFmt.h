// Which description a message format is built for.
#pragma once

enum Zarn_MSG_FMT
{
    Zarn_MSG_FMT_DISPLAY = 0, // the display text, 512 characters, default width 67
    Zarn_MSG_FMT_LOGFILE = 1, // the log text, 1024 characters, default width 0 (no wrapping)
};
