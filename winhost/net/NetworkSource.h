// Where the adapters of the PC come from.
#pragma once

#include <vector>

#include "winhost/pc/Pc.h"

namespace winhost {

// The PC's IPv4 adapters as they stand now, loopback included.
std::vector<Adapter> Adapters();

}  // namespace winhost
