// The data pair source of the process's environment: one pair for each variable, its name as the
// caption and its value as the datum, as the environment stood when the source was built.
#pragma once

#include "sysinfo/ZarnSysInfo.h"

#include <QStringList>

class ZarnSysInfoEnvVars : public ZarnSysInfo
{
public:
    ZarnSysInfoEnvVars();
    ~ZarnSysInfoEnvVars() override;

    // The variable at `position` in the order of m_variables; false past the last one. Sets
    // m_position, so that getFirstDataPair rewinds the walk.
    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override;

protected:
    // One step on; m_updatePosition is not consulted.
    bool learnNextPosition() override;

    QStringList m_variables; // "name=value", one entry for each variable
};
