// A wait for files of the host whose limit passes on the PC's clock.
#pragma once

#include <poll.h>

#include <vector>

#include "winhost/core/Clock.h"

namespace winhost {

// Waits until one of them is ready, or until `look` milliseconds of the machine's time have passed, if that
// is not negative. False when the deadline has come first.
bool AwaitDescriptors(std::vector<pollfd> descriptors, Clock::Deadline deadline, long look);

}  // namespace winhost
