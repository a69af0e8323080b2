// The port of remote KVM; the log calls its socket the SSH socket.
#pragma once

#include <cstdint>

inline constexpr uint16_t kKvmPort = 22;
