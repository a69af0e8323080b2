#include "tests/support/scripted/Runtime.h"

extern "C" lux::LUX_RESULT LUXQueryVersion(lux::LUXVersion* version) {
    return scripted::QueryVersion(version);
}
