// A host that makes requests to the simulated firmware, one at a time, over the link.
//
//   requestload SOCKET COUNT PER_SECOND        0 a second: the next one as soon as the last is answered
//
// Prints the requests a second, and the median and the 95th percentile of their times in microseconds.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

#include "firmware/link/LinkProtocol.h"
#include "mailbox/Requests.h"
#include "testbed/Sockets.h"

namespace {

using Clock = std::chrono::steady_clock;

void Ask(const testbed::Descriptor& socket, uint32_t id) {
    struct {
        mpmlink::Header head;
        uint32_t state;
    } request{{sizeof request.state, mpmlink::Kind::Request, id, MailboxCode::WriteZELStatus, 0}, 1};
    static_assert(sizeof request == sizeof(mpmlink::Header) + sizeof(uint32_t));
    mpmlink::Header answer;
    if (!testbed::SendAll(socket, &request, sizeof request) ||
        testbed::ReceiveAll(socket, &answer, sizeof answer) != sizeof answer)
        throw std::runtime_error("the firmware has gone");
    if (answer.id != id || answer.value != 0) throw std::runtime_error("a request was refused");
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4) throw std::invalid_argument("it needs SOCKET COUNT PER_SECOND");
    const testbed::Descriptor socket = testbed::ConnectUnix(argv[1]);
    if (!socket) throw std::runtime_error("no firmware listens there");
    const auto count = uint32_t(std::atoi(argv[2]));
    const int rate = std::atoi(argv[3]);
    std::vector<double> times;
    const auto start = Clock::now();
    for (uint32_t id = 1; id <= count; ++id) {
        if (rate > 0)
            std::this_thread::sleep_until(start + std::chrono::nanoseconds(1'000'000'000LL * id / rate));
        const auto asked = Clock::now();
        Ask(socket, id);
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - asked).count());
    }
    const std::chrono::duration<double> taken = Clock::now() - start;
    std::sort(times.begin(), times.end());
    printf("%.0f %.1f %.1f\n", count / taken.count(), times.at(times.size() / 2),
           times[times.size() * 95 / 100]);
    return 0;
} catch (const std::exception& problem) {
    fprintf(stderr, "requestload: %s\n", problem.what());
    return 1;
}
