// A service of the PC that is no process of Linux: a driver, say.
#pragma once

#include <cstdint>
#include <string>

#include "winhost/pc/Fields.h"

namespace winhost {

struct DescribedService {
    std::string name;        // "KelmarMnf"; its case makes no difference
    uint32_t type = 1;       // SERVICE_KERNEL_DRIVER
    uint32_t startType = 3;  // SERVICE_*_START or SERVICE_DISABLED
    uint32_t state = 1;      // SERVICE_STOPPED to SERVICE_PAUSED
    uint32_t stopMs = 0;     // of the PC's time, from the stop control until it has stopped
    // With which it refuses, 0 for none: OpenServiceA, StartServiceA, ControlService, ChangeServiceConfigA.
    uint32_t openError = 0, startError = 0, stopError = 0, changeError = 0;
};
WINHOST_FIELDS(DescribedService, name, type, startType, state, stopMs, openError, startError, stopError,
               changeError)

}  // namespace winhost
