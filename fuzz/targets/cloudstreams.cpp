// A hostile cloud's frames as the stand-in for the cloud library carries them out: any frames in any order,
// with consoles on their way to the ports of this host. The library answers a ping after each frame.
#include <poll.h>

#include <future>
#include <iterator>
#include <map>
#include <thread>

#include "companions/nubaapi/Configuration.h"
#include "companions/nubaapi/Connection.h"
#include "fuzz/Input.h"
#include "testbed/Sockets.h"

namespace {

using fuzz::Require;

constexpr size_t kMostSteps = 40;
constexpr uint8_t kStreams = 4;
constexpr uint16_t kDashPort = 664;
constexpr int kPatience = 20'000;  // milliseconds
constexpr char kThisHost[] = "PC";
constexpr const char* kTargets[] = {"PC:664", "PC:22", "PC:80", "other:664"};

// A port of this host, which sends back what it receives.
class EchoingPort {
  public:
    EchoingPort() : m_listener(testbed::ListenTcp(0, 64)) {
        std::thread([this] {
            for (;;)
                Serve(testbed::Descriptor(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        }).detach();
    }
    uint16_t Number() const { return testbed::PortOf(m_listener); }

  private:
    static void Serve(testbed::Descriptor connection) {
        std::thread([connection = std::move(connection)] {
            char bytes[4096];
            ssize_t size = 0;
            while ((size = recv(connection.Get(), bytes, sizeof bytes, 0)) > 0)
                if (!testbed::SendAll(connection, bytes, static_cast<size_t>(size))) break;
        }).detach();
    }
    const testbed::Descriptor m_listener;
};

bool IsAllowed(const std::string& host, const std::string& port) {
    return host == kThisHost && port == std::to_string(kDashPort);
}

bool Filter(void*, const Endpoint* endpoint) {
    return IsAllowed(endpoint->host, endpoint->port);
}

// The state of a stream at the cloud.
struct Known {
    size_t unanswered = 0;         // requests to open it
    bool mayBeAllowed = false;     // one of them
    uint64_t sent = 0, taken = 0;  // bytes, and those for which there has been credit
    uint64_t received = 0, credit = kWindow;
};

class HostileCloud {
  public:
    HostileCloud(testbed::Descriptor socket, fuzz::Input from) : m_socket(std::move(socket)), m_from(from) {}

    void Run() {
        for (size_t step = 0; step < kMostSteps && !m_from.AtEnd(); ++step) {
            const std::string frame = NextFrame() + Encode(FrameType::Ping, 0);
            if (!testbed::SendAll(m_socket, frame.data(), frame.size()) || !AwaitPong()) return;
        }
        shutdown(m_socket.Get(), SHUT_WR);
        while (Receive()) {
        }
    }

  private:
    std::string NextFrame() {
        const auto type = static_cast<FrameType>(m_from.Byte() % 16);
        const uint32_t stream = m_from.Byte() % kStreams;
        const uint8_t repeats = m_from.Byte();
        const std::string text = fuzz::TextOf(m_from.Block());
        std::string payload = text;
        if (type == FrameType::Open && repeats < std::size(kTargets)) payload = kTargets[repeats];
        if (type == FrameType::Data)
            for (uint8_t i = 0; i < repeats && payload.size() + text.size() <= kMaxPayload; ++i)
                payload += text;
        Note(type, m_known[stream], payload);
        return Encode(type, stream, payload);
    }
    static void Note(FrameType type, Known& known, const std::string& payload) {
        if (type == FrameType::Open) {
            ++known.unanswered;
            const size_t colon = payload.rfind(':');
            known.mayBeAllowed |=
                colon != std::string::npos && IsAllowed(payload.substr(0, colon), payload.substr(colon + 1));
        }
        if (type == FrameType::Data) known.sent += payload.size();
        if (type == FrameType::Credit) known.credit += NumberOf(payload);
        // A later stream may have the same number.
        if (type == FrameType::Close) known.credit += kWindow;
    }
    bool AwaitPong() {
        for (m_hasPong = false; !m_hasPong;)
            if (!Receive()) return false;
        return true;
    }
    // False when the library has closed the connection.
    bool Receive() {
        pollfd waiting{m_socket.Get(), POLLIN, 0};
        Require(poll(&waiting, 1, kPatience) == 1, "the library answers a ping, or leaves");
        char bytes[4096];
        const ssize_t size = recv(m_socket.Get(), bytes, sizeof bytes, 0);
        if (size <= 0) return false;
        m_frames.Feed({bytes, static_cast<size_t>(size)});
        bool isBroken = false;
        while (const auto frame = m_frames.Next(isBroken))
            Check(*frame);
        Require(!isBroken, "a frame of the library is bounded");
        return true;
    }
    void Check(const Frame& frame) {
        Require((frame.type == FrameType::Hello) == !m_hasHello, "the name comes first, and once");
        m_hasHello = true;
        Known& known = m_known[frame.stream];
        switch (frame.type) {
            case FrameType::Hello:
                return Require(frame.payload == kThisHost, "the name is that of this host");
            case FrameType::Opened:
                Require(known.mayBeAllowed, "only a port that the filter allows is reached");
                [[fallthrough]];
            case FrameType::Refused:
                return Require(known.unanswered-- > 0, "each request for a target has one answer");
            case FrameType::Data:
                known.received += frame.payload.size();
                return Require(known.received <= known.credit, "no more comes than the cloud takes");
            case FrameType::Credit:
                known.taken += NumberOf(frame.payload);
                return Require(known.taken <= known.sent, "there is credit for what has been taken alone");
            case FrameType::Close:
                // A later stream of this number has the whole window again.
                known.credit += kWindow;
                return;
            case FrameType::Pong:
                m_hasPong = true;
                return;
            default:
                Require(frame.type == FrameType::Ping, "the library sends frames of the protocol");
        }
    }

    const testbed::Descriptor m_socket;
    fuzz::Input m_from;
    FrameReader m_frames;
    std::map<uint32_t, Known> m_known;
    bool m_hasHello = false, m_hasPong = false;
};

}  // namespace

FUZZ_TARGET(cloudstreams) {
    static const EchoingPort& port = *new EchoingPort;
    static const testbed::Descriptor& listener = *new testbed::Descriptor(testbed::ListenTcp(0, 1));
    InitData data;
    data.localHost = kThisHost;
    data.cloudHost = "127.0.0.1";
    data.port = std::to_string(testbed::PortOf(listener));
    data.filter = &Filter;
    StandInSettings settings;
    settings.ports = {{kDashPort, port.Number()}};
    auto cloud = std::async(std::launch::async, [input] {
        HostileCloud(testbed::Descriptor(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)),
                     fuzz::Input(input))
            .Run();
    });
    Connection(data, settings).Run();
    cloud.get();
}
