// The named form of `Mutex` that a data set owns: the same recursive lock under its own name.
#pragma once

#include "foundation/Mutex.h"

class CriticalSection : public Mutex
{
};
