// Loads several TCP ports of this machine in turns, and plays the server behind one.
//
//   tcpload serve echo|sink|blocks PORT                    until it is killed
//   tcpload ping ROUNDS COUNT PAUSE WAY...                 COUNT times 64 bytes there and back, PAUSE
//                                                          microseconds apart
//   tcpload push ROUNDS MEGABYTES WAY...                   bulk to a sink
//   tcpload pull ROUNDS MEGABYTES WINDOW WAY...            blocks of kBlock bytes, WINDOW asked for ahead
//
// A WAY is PORT or PORT/PID. All connections stay open from the first round to the last, and each round loads
// every way once. `ping` prints one line for each round with the median in microseconds of each way, and a
// last line with the p99 of each way over all rounds. `push` and `pull` print megabytes per second.
//
// The process PID of a way is stopped (SIGSTOP) while another way has its turn. The service polls its socket
// for as long as a session is open, and without this the other ways would share the core with it.
//
// A sink answers one byte for every kSinkStep bytes that it has swallowed. Blocks are asked for because the
// service keeps one DASH payload of the firmware at a time, and the firmware keeps a few megabytes for a host
// that reads too slowly.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Connection.h"
#include "bench/Load.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

void Serve(const std::string& mode, int port) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<uint16_t>(port));
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0 || listen(listener, 8) != 0)
        throw std::runtime_error("cannot listen");
    std::vector<char> buffer(load::kBlock);
    for (;;) {
        Connection client(accept(listener, nullptr, nullptr));
        load::Answerer answerer(load::ModeOf(mode));
        try {
            while (const size_t n = client.Read(buffer, buffer.size()))
                answerer.Take(buffer.data(), n,
                              [&](const char* data, size_t size) { client.Write(data, size); });
        } catch (const std::exception&) {
            // This client has gone; the next one is served.
        }
    }
}

class Way {
  public:
    explicit Way(const std::string& text)
        : m_connection(Connection::ToLoopback(atoi(text.c_str()))),
          m_process(text.find('/') == std::string::npos ? 0 : atoi(text.c_str() + text.find('/') + 1)) {}
    ~Way() { Resume(); }
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;

    Connection& Server() { return m_connection; }
    void Pause() { Signal(SIGSTOP); }
    void Resume() { Signal(SIGCONT); }

    std::vector<double> samples;

  private:
    void Signal(int signal) const {
        if (m_process > 0) kill(m_process, signal);
    }

    Connection m_connection;
    pid_t m_process;
};

// The p-th part of the values, 0.5 for the median.
double Quantile(std::vector<double> values, double p) {
    const auto at = values.begin() + static_cast<ptrdiff_t>(p * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

double RoundTrip(Connection& server, std::vector<char>& buffer) {
    const auto start = Clock::now();
    server.Write(buffer.data(), load::kRequest);
    server.ReadAll(buffer, load::kRequest);
    return Seconds(Clock::now() - start) * 1e6;
}

// The first round trips after another way's turn find its traces in the caches, and are not counted.
double Ping(Way& way, int count, std::chrono::microseconds pause) {
    std::vector<char> buffer(load::kRequest);
    std::vector<double> microseconds;
    const int warmUp = std::max(3, count / 10);
    for (int i = -warmUp; i < count; ++i) {
        if (pause.count() != 0) std::this_thread::sleep_for(pause);
        const double took = RoundTrip(way.Server(), buffer);
        if (i >= 0) microseconds.push_back(took);
    }
    way.samples.insert(way.samples.end(), microseconds.begin(), microseconds.end());
    return Quantile(std::move(microseconds), 0.5);
}

double Push(Connection& server, size_t megabytes) {
    std::vector<char> buffer(load::kBlock), answer(64);
    const size_t steps = megabytes * (1 << 20) / load::kSinkStep;
    Clock::time_point start;
    // The first step is not counted.
    for (size_t step = 0; step < steps + 1; ++step) {
        if (step == 1) start = Clock::now();
        for (size_t left = load::kSinkStep; left > 0;) {
            const size_t size = std::min(left, buffer.size());
            server.Write(buffer.data(), size);
            left -= size;
        }
        server.ReadAll(answer, 1);
    }
    return static_cast<double>(steps * load::kSinkStep) / 1e6 / Seconds(Clock::now() - start);
}

double Pull(Connection& server, size_t megabytes, size_t window) {
    std::vector<char> request(load::kRequest), buffer(load::kBlock);
    const size_t blocks = megabytes * (1 << 20) / load::kBlock;
    Clock::time_point start;
    size_t asked = 0;
    // The first blocks are not counted.
    for (size_t block = 0; block < window + blocks; ++block) {
        if (block == window) start = Clock::now();
        for (; asked < std::min(block + window, window + blocks); ++asked)
            server.Write(request.data(), request.size());
        server.ReadAll(buffer, load::kBlock);
    }
    return static_cast<double>(blocks * load::kBlock) / 1e6 / Seconds(Clock::now() - start);
}

// Each round begins with another way, so that none has the same neighbour ahead of it every time.
void InTurns(std::deque<Way>& ways, int rounds, const std::function<double(Way&)>& measure) {
    for (Way& way : ways)
        way.Pause();
    std::vector<double> figures(ways.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t turn = 0; turn < ways.size(); ++turn) {
            const size_t index = (static_cast<size_t>(round) + turn) % ways.size();
            ways[index].Resume();
            figures[index] = measure(ways[index]);
            ways[index].Pause();
        }
        for (const double figure : figures)
            printf("%.3f ", figure);
        printf("\n");
    }
}

int Load(const std::string& verb, const std::vector<std::string>& words) {
    const size_t options = verb == "push" ? 2 : 3;
    std::vector<int> numbers;
    for (size_t i = 0; i < options; ++i)
        numbers.push_back(atoi(words[i].c_str()));
    std::deque<Way> ways;
    for (size_t i = options; i < words.size(); ++i)
        ways.emplace_back(words[i]);
    InTurns(ways, numbers[0], [&](Way& way) {
        const size_t amount = static_cast<size_t>(numbers[1]);
        if (verb == "push") return Push(way.Server(), amount);
        if (verb == "pull") return Pull(way.Server(), amount, static_cast<size_t>(numbers[2]));
        return Ping(way, numbers[1], std::chrono::microseconds(numbers[2]));
    });
    if (verb != "ping") return 0;
    for (Way& way : ways)
        printf("%.3f ", Quantile(way.samples, 0.99));
    printf("\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "serve" && words.size() == 3) {
        Serve(words[1], atoi(words[2].c_str()));
        return 0;
    }
    if ((verb == "push" && words.size() >= 4) || ((verb == "ping" || verb == "pull") && words.size() >= 5))
        return Load(verb, {words.begin() + 1, words.end()});
    fprintf(stderr,
            "tcpload: serve MODE PORT, ping|pull ROUNDS AMOUNT PAUSE|WINDOW WAY..., or push ROUNDS "
            "MEGABYTES WAY...\n");
    return 2;
} catch (const std::exception& problem) {
    fprintf(stderr, "tcpload: %s\n", problem.what());
    return 1;
}
