// Form variables: the name table, and compiling a section's bracketed names into inserts.
#include "monitor/ZarnData.h"

bool ZarnData::learnLogFileFormVarNames()
{
    return isSelfSatisfied();
}

Zarn_FORM_VAR ZarnData::convertLogFileFormVarNameToEnum(wchar_t* const)
{
    return static_cast<Zarn_FORM_VAR>(-1);
}

int ZarnData::convertLogFileFormVarNameToIndex(wchar_t* const)
{
    return -1;
}

bool ZarnData::countLogFileFormSectionVarNames(wchar_t* const, int& count)
{
    count = 0;
    return isSelfSatisfied();
}

bool ZarnData::createLogFileFormSectionArgV_Enums(int, Zarn_FORM_VAR**)
{
    return isSelfSatisfied();
}

bool ZarnData::createLogFileFormSectionArgV_Values(int, unsigned long long**)
{
    return isSelfSatisfied();
}

bool ZarnData::composeLogFileFormSectionFormat(wchar_t**, int& count, Zarn_FORM_VAR**, unsigned long long**)
{
    count = 0;
    return isSelfSatisfied();
}

bool ZarnData::reformatLogFileFormSection(wchar_t**, int, Zarn_FORM_VAR*)
{
    return isSelfSatisfied();
}

bool ZarnData::isVarInLogFileFormSection(Zarn_FORM_VAR, int, Zarn_FORM_VAR* const)
{
    return false;
}
