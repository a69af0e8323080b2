// What the scripted runtime's shared objects export, each some of it.
#pragma once

#include "lux/Interfaces.h"

namespace scripted {

lux::LUX_RESULT Init(lux::LUXVersion version, lux::LUXFactory** factory);
lux::LUX_RESULT QueryVersion(lux::LUXVersion* version);

}  // namespace scripted
