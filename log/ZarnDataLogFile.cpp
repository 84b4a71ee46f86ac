// The log file of a data set: opening, closing, establishing and replacing it.
#include "monitor/ZarnData.h"

#include <QTextStream>

wchar_t ZarnData::s_logSeriesOrigin[MAX_PATH] = {};
int ZarnData::s_logSeriesCount = 1;

bool ZarnData::closeFile(QTextStream*&, const wchar_t*)
{
    return false;
}

bool ZarnData::closeLogFile()
{
    return false;
}

bool ZarnData::openFile(wchar_t**, QTextStream**, wchar_t* const, int)
{
    return false;
}

bool ZarnData::openLogFile(wchar_t* const)
{
    return false;
}

bool ZarnData::openLogFileForm(wchar_t* const)
{
    return false;
}

bool ZarnData::reestablishLogFile(wchar_t*, wchar_t*, Zarn_LOG)
{
    return isSelfSatisfied();
}
