// The firmware's commands against a whole service, in which nothing else has a part: what the dispatch and
// its handlers make of any sequence of messages.
#include "fuzz/support/Scenario.h"

FUZZ_TARGET(dispatch) {
    fuzz::RunScenario(input, fuzz::Others::Absent);
}
