// Form injectors: reports of the system written once into temporary files and read by each head.
#include "monitor/ZarnData.h"

bool ZarnData::mustLearnLogFileFormInjectors(long, unsigned long)
{
    return false;
}

bool ZarnData::learnLogFileFormInjectors(long)
{
    return isSelfSatisfied();
}

bool ZarnData::eliminateLogFileFormInjector(int)
{
    return false;
}
