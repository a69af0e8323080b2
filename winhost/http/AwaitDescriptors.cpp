#include "winhost/http/AwaitDescriptors.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <mutex>

#include "testbed/Descriptor.h"
#include "winhost/pipe/PollWait.h"

namespace winhost {
namespace {

testbed::Descriptor TimerIn(long milliseconds) {
    testbed::Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    // A timer of 0 would never fire.
    itimerspec time{};
    time.it_value.tv_sec = milliseconds / 1000;
    time.it_value.tv_nsec = std::max(1L, milliseconds % 1000 * 1'000'000);
    timerfd_settime(timer.Get(), 0, &time, nullptr);
    return timer;
}

}  // namespace

bool AwaitDescriptors(std::vector<pollfd> descriptors, Clock::Deadline deadline, long look) {
    // Ends the wait of this thread when the clock is moved.
    static thread_local Interrupt wake;
    testbed::Descriptor timer;
    if (look >= 0) {
        timer = TimerIn(look);
        descriptors.push_back({timer.Get(), POLLIN, 0});
    }
    descriptors.push_back({wake.Get(), POLLIN, 0});
    PollWait wait(descriptors, wake);
    std::mutex mutex;
    std::unique_lock lock(mutex);
    return Clock::Instance().WaitUntil(lock, wait, deadline, [&] { return wait.IsReady(); });
}

}  // namespace winhost
