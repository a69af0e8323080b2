// One way from the screen to encoded frames, and the user whose screen it is. It reads its commands from the
// standard input and answers each with one line of JSON.
//
//   screenload service ADDRESS                    the firmware of a service, with the mailbox at this address
//   screenload bare LIBRARY WIDTH HEIGHT          the calls of the media runtime alone
//
//   frames type|scroll|replace SEED COUNT SKIP    COUNT frames at 30 a second, each after a change of the
//                                                 screen; the first SKIP are not measured
//   pull COUNT                                    of a service: COUNT frames as fast as they come
//   host, begin, end                              of a service: awaits it, begins a session, ends it
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/screen/BareLoop.h"
#include "bench/screen/Puller.h"
#include "bench/screen/User.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr Clock::duration kPeriod = std::chrono::nanoseconds(1'000'000'000 / 30);
// The change is on the screen so long before the frame is asked for.
constexpr Clock::duration kAhead = std::chrono::milliseconds(8);

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

struct Measured {
    std::vector<double> milliseconds;
    size_t bytes = 0;
    Clock::time_point firstAsked, lastAsked;
};

using Frame = std::function<size_t()>;

User::Act ActOf(const std::string& name) {
    if (name == "type") return User::Act::Type;
    if (name == "scroll") return User::Act::Scroll;
    if (name == "replace") return User::Act::Replace;
    throw std::invalid_argument("no such act: " + name);
}

// What is late is not made up for.
Measured PacedFrames(User& user, const Frame& frame, int skip, int count) {
    Measured measured;
    Clock::time_point due = Clock::now() + kPeriod;
    for (int i = 0; i < skip + count; ++i) {
        std::this_thread::sleep_until(due - kAhead);
        user.Step();
        std::this_thread::sleep_until(due);
        const Clock::time_point asked = Clock::now();
        const size_t bytes = frame();
        const Clock::time_point complete = Clock::now();
        due = (asked - due < kPeriod ? due : asked) + kPeriod;
        if (i < skip) continue;
        if (i == skip) measured.firstAsked = asked;
        measured.lastAsked = asked;
        measured.bytes += bytes;
        measured.milliseconds.push_back(Seconds(complete - asked) * 1000);
    }
    return measured;
}

void PrintTimes(const Measured& measured) {
    printf("\"bytes\": %zu, \"seconds\": %.6f, \"milliseconds\": [", measured.bytes,
           Seconds(measured.lastAsked - measured.firstAsked));
    for (size_t i = 0; i < measured.milliseconds.size(); ++i)
        printf("%s%.4f", i ? ", " : "", measured.milliseconds[i]);
    printf("]");
}

void Answer(const std::function<void()>& print) {
    printf("{");
    print();
    printf("}\n");
    fflush(stdout);
}

Measured Frames(std::istringstream& words, const Frame& frame) {
    static User user;
    std::string act;
    uint32_t seed = 0;
    int count = 0, skip = 0;
    words >> act >> seed >> count >> skip;
    user.Begin(ActOf(act), seed);
    return PacedFrames(user, frame, skip, count);
}

void Serve(const std::function<void(const std::string&, std::istringstream&)>& execute) {
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        execute(verb, words);
    }
}

void ServeBare(BareLoop& loop) {
    Serve([&](const std::string& verb, std::istringstream& words) {
        if (verb != "frames") throw std::invalid_argument(verb);
        const BareLoop::Times before = loop.Spent();
        const Measured measured = Frames(words, [&] { return loop.Frame(); });
        Answer([&] {
            const BareLoop::Times& after = loop.Spent();
            printf("\"capture\": %lld, \"conversion\": %lld, \"encoder\": %lld, ",
                   after.capture - before.capture, after.conversion - before.conversion,
                   after.encoder - before.encoder);
            PrintTimes(measured);
        });
    });
}

void Pull(Puller& puller, int count) {
    Measured measured;
    for (int i = 0; i < count; ++i) {
        measured.lastAsked = Clock::now();
        if (i == 0) measured.firstAsked = measured.lastAsked;
        measured.bytes += puller.Pull();
        measured.milliseconds.push_back(Seconds(Clock::now() - measured.lastAsked) * 1000);
    }
    Answer([&] { PrintTimes(measured); });
}

void ServeService(Puller& puller) {
    Serve([&](const std::string& verb, std::istringstream& words) {
        if (verb == "frames") {
            const Measured measured = Frames(words, [&] { return puller.Pull(); });
            return Answer([&] { PrintTimes(measured); });
        }
        if (verb == "pull") {
            int count = 0;
            words >> count;
            return Pull(puller, count);
        }
        if (verb == "host") {
            puller.AwaitHost();
        } else if (verb == "begin") {
            puller.BeginSession();
        } else if (verb == "end") {
            puller.EndSession();
        } else {
            throw std::invalid_argument(verb);
        }
        Answer([] {});
    });
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "service" && argc == 3) {
        Puller puller(argv[2]);
        Answer([] {});
        ServeService(puller);
        return 0;
    }
    if (mode == "bare" && argc == 5) {
        BareLoop loop(argv[2], {atoi(argv[3]), atoi(argv[4])});
        Answer([] {});
        ServeBare(loop);
        return 0;
    }
    fprintf(stderr, "screenload: service ADDRESS, or bare LIBRARY WIDTH HEIGHT\n");
    return 2;
} catch (const std::exception& problem) {
    fprintf(stderr, "screenload: %s\n", problem.what());
    return 1;
}
