#include "tests/support/scripted/Runtime.h"

extern "C" lux::LUX_RESULT LUXInit(lux::LUXVersion version, lux::LUXFactory** factory) {
    return scripted::Init(version, factory);
}
