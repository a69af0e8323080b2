#include "tests/support/scripted/Objects.h"

extern "C" scripted::Script* ScriptOfRuntime() {
    return &scripted::TheScript();
}
