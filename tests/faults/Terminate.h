// Ends of the service's process that are as they have to be.
#pragma once

#include "tests/faults/Injector.h"

// From now on the process says in the account whether an exception that nobody caught had to end it: that of
// a thread that could not be started, where nobody is there to go on.
void ExpectSpecifiedEnds(Account& account);
