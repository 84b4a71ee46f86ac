// The form of a data set's log: finding it, cutting it into sections, the built-in form.
#include "monitor/ZarnData.h"

bool ZarnData::areLogFileFormSectionsUsable(unsigned long, Zarn_LOG)
{
    return isSelfSatisfied();
}

void ZarnData::freeLogFileFormData() {}

void ZarnData::freeLogFileFormDataForSections() {}

void ZarnData::freeLogFileFormSectionHeadData() {}

bool ZarnData::learnLogFileForm(unsigned long)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinished(unsigned int, wchar_t**, int&, Zarn_FORM_VAR**, unsigned long long**,
                                               bool*)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinished(long, size_t, wchar_t*, size_t, wchar_t**, int&, Zarn_FORM_VAR**,
                                               unsigned long long**, bool*)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinishedBasic(wchar_t**, int&, Zarn_FORM_VAR**, unsigned long long**, bool*)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsFinished(unsigned long, Zarn_LOG)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsFinished(long, size_t, long, size_t, long, size_t, unsigned long)
{
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsRaw(long&, long&, size_t&, long&, size_t&, long&, size_t&)
{
    return isSelfSatisfied();
}

bool ZarnData::obtainLogFileFormData(unsigned long)
{
    return isSelfSatisfied();
}

bool ZarnData::processFileLogForm(unsigned long)
{
    return isSelfSatisfied();
}

bool ZarnData::supplantLogFileFormFromResDLL(unsigned long)
{
    return isSelfSatisfied();
}
