// The memory that a host shares with the firmware for the bytes of large frames.
#pragma once

#include "testbed/SharedRing.h"

namespace mpmlink {

struct LinkMemory {
    testbed::SharedRing toFirmware;
    testbed::SharedRing toHost;
};

}  // namespace mpmlink
