// Ends of the service's process that are as they have to be.
#pragma once

#include "tests/faults/Injector.h"

// From now on the process says in the account whether an uncaught exception had to end it: that of
// a thread that could not be started, where nothing can go on.
void ExpectSpecifiedEnds(Account& account);
