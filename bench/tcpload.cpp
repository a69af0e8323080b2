// Loads a TCP address from one connection, and plays the server behind it.
//
//   tcpload serve echo|sink|blocks PORT              until it is killed
//   tcpload ping ADDRESS PORT COUNT PAUSE            64 bytes there and back, so many milliseconds apart;
//   prints the
//                                                    median and p99 in microseconds
//   tcpload push ADDRESS PORT MEGABYTES              bulk to a sink; prints megabytes per second
//   tcpload pull ADDRESS PORT MEGABYTES WINDOW       blocks of kBlock bytes, so many asked for ahead
//
// A sink answers one byte for every kSinkStep bytes it has swallowed. Blocks are asked for because the
// service keeps one DASH payload of the firmware's at a time, and the firmware a few megabytes for a host
// that reads too slowly.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/Load.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

class Connection {
  public:
    explicit Connection(int descriptor) : m_descriptor(descriptor) {
        if (descriptor < 0) throw std::runtime_error("no connection");
        int on = 1;
        setsockopt(m_descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~Connection() { close(m_descriptor); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    static Connection To(const char* address, int port) {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(static_cast<uint16_t>(port));
        inet_pton(AF_INET, address, &peer.sin_addr);
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        if (connect(descriptor, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0) {
            close(descriptor);
            throw std::runtime_error("cannot connect");
        }
        return Connection(descriptor);
    }

    size_t Read(std::vector<char>& buffer, size_t most) {
        const ssize_t n = recv(m_descriptor, buffer.data(), std::min(most, buffer.size()), 0);
        if (n < 0) throw std::runtime_error("recv failed");
        return static_cast<size_t>(n);
    }
    void ReadAll(std::vector<char>& buffer, size_t size) {
        while (size > 0) {
            const size_t n = Read(buffer, size);
            if (n == 0) throw std::runtime_error("closed by the peer");
            size -= n;
        }
    }
    void Write(const char* data, size_t size) {
        while (size > 0) {
            const ssize_t n = send(m_descriptor, data, size, MSG_NOSIGNAL);
            if (n < 0) throw std::runtime_error("send failed");
            data += n;
            size -= static_cast<size_t>(n);
        }
    }

  private:
    int m_descriptor;
};

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
            // The next client is as welcome.
        }
    }
}

void Ping(Connection server, int count, std::chrono::milliseconds pause) {
    std::vector<char> buffer(load::kRequest);
    std::vector<double> microseconds;
    microseconds.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count + count / 10; ++i) {
        std::this_thread::sleep_for(pause);
        const auto start = Clock::now();
        server.Write(buffer.data(), buffer.size());
        server.ReadAll(buffer, buffer.size());
        if (i >= count / 10) microseconds.push_back(Seconds(Clock::now() - start) * 1e6);
    }
    std::sort(microseconds.begin(), microseconds.end());
    printf("%.2f %.2f\n", microseconds[microseconds.size() / 2],
           microseconds[microseconds.size() * 99 / 100]);
}

void Push(Connection server, size_t megabytes) {
    std::vector<char> buffer(load::kBlock), answer(64);
    const size_t steps = megabytes * (1 << 20) / load::kSinkStep;
    const auto start = Clock::now();
    for (size_t step = 0; step < steps; ++step) {
        for (size_t left = load::kSinkStep; left > 0;) {
            const size_t size = std::min(left, buffer.size());
            server.Write(buffer.data(), size);
            left -= size;
        }
        server.ReadAll(answer, 1);
    }
    printf("%.1f\n", static_cast<double>(steps * load::kSinkStep) / 1e6 / Seconds(Clock::now() - start));
}

void Pull(Connection server, size_t megabytes, size_t window) {
    std::vector<char> request(load::kRequest), buffer(load::kBlock);
    const size_t blocks = megabytes * (1 << 20) / load::kBlock;
    const auto start = Clock::now();
    size_t asked = 0;
    for (size_t block = 0; block < blocks; ++block) {
        for (; asked < std::min(block + window, blocks); ++asked)
            server.Write(request.data(), request.size());
        server.ReadAll(buffer, load::kBlock);
    }
    printf("%.1f\n", static_cast<double>(blocks * load::kBlock) / 1e6 / Seconds(Clock::now() - start));
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "serve" && argc == 4) {
        Serve(argv[2], atoi(argv[3]));
    } else if (argc == 6 && verb == "ping") {
        Ping(Connection::To(argv[2], atoi(argv[3])), atoi(argv[4]), std::chrono::milliseconds(atoi(argv[5])));
    } else if (argc == 5 && verb == "push") {
        Push(Connection::To(argv[2], atoi(argv[3])), static_cast<size_t>(atoi(argv[4])));
    } else if (argc == 6 && verb == "pull") {
        Pull(Connection::To(argv[2], atoi(argv[3])), static_cast<size_t>(atoi(argv[4])),
             static_cast<size_t>(atoi(argv[5])));
    } else {
        fprintf(stderr, "tcpload: serve MODE PORT, or ping|push|pull ADDRESS PORT AMOUNT [PAUSE|WINDOW]\n");
        return 2;
    }
    return 0;
} catch (const std::exception& problem) {
    fprintf(stderr, "tcpload: %s\n", problem.what());
    return 1;
}
