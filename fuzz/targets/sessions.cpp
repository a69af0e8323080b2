// The same with the others there: consoles, viewers, the person at the PC. Each input costs threads and
// connections.
#include "fuzz/support/Scenario.h"

FUZZ_TARGET(sessions) {
    fuzz::RunScenario(input, fuzz::Others::Present);
}
