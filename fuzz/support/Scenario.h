// What may happen to a service, as an input describes it step by step: the firmware's commands in any order
// and of any length, and between them faults of the firmware, time, power events, a console's, a viewer's and
// a person's doings.
#pragma once

#include "fuzz/Target.h"

namespace fuzz {

enum class Others { Absent, Present };  // the console, the viewer and the person

// Ends with the service as it was before, which takes the next message.
void RunScenario(Bytes input, Others others);

}  // namespace fuzz
