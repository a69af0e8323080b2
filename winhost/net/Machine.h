// This machine's own interfaces, asked of the kernel at each call, in the network namespace of the calling
// thread.
#pragma once

#include <istream>
#include <string>
#include <vector>

#include "winhost/pc/Pc.h"

namespace winhost {

constexpr const char* kLoopbackDescription = "Software Loopback Interface 1";

// By index. As Linux reports it, but for these: the name is the interface's, the description its alias when
// it has one, else the name, and kLoopbackDescription for the loopback. An address with a lifetime counts as
// given by DHCP, by a server that isn't known. The gateway is that of the interface's default route with the
// lowest metric. Throws std::system_error when the kernel can't be asked.
std::vector<Adapter> MachineAdapters();

// The IPv4 ones of a resolv.conf.
std::vector<std::string> NameServersIn(std::istream& resolvConf);

}  // namespace winhost
