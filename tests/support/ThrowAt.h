// A call of the platform that throws. It stands for anything that may throw where the call is made.
#pragma once

#include <cstdint>
#include <string>

#include "winhost/core/Gate.h"

// Until the gate is reset.
template <class Thrown>
void ThrowAt(const std::string& call, const Thrown& thrown) {
    winhost::Gate::Instance().Ask([call, thrown](const char* name, const void*) -> uint32_t {
        if (name == call) throw thrown;
        return 0;
    });
}
