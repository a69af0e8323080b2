#include "companions/nubaapi/Connection.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

using namespace std::chrono_literals;

namespace {

constexpr auto kConnectPatience = 10s;
constexpr size_t kMaxStreams = 64;
constexpr size_t kMaxOutput = 1 << 20;  // bytes for the cloud, above which no port is read
constexpr size_t kBlock = 16384;

// 0 for what is no port.
uint16_t PortOf(const std::string& text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() ? port : uint16_t{0};
}

}  // namespace

Connection::Connection(InitData& data, const StandInSettings& settings)
    : m_data(data), m_settings(settings), m_tls(data.files, data.cloudHost) {}

void Connection::Run() {
    if (PortOf(m_data.port) == 0) throw std::runtime_error("\"" + m_data.port + "\" is no port");
    Connect();
    if (!m_socket) return;
    Establish();
    if (!m_tls.IsEstablished()) return;
    LogLine(kLogInfo, "connected to " + m_data.cloudHost + ":" + m_data.port);
    Send(FrameType::Hello, 0, m_data.localHost);
    m_lastPing = m_lastByte;
    HandleFrames();
    while (!m_isOver && !m_data.HasEnded())
        Wait();
    m_tls.Shutdown();
    FlushToCloud();
    LogLine(kLogInfo, "the connection to " + m_data.cloudHost + " has ended");
}

// False when the configuration has ended, or the time is over.
bool Connection::AwaitSocket(const Socket& socket, unsigned wanted, Clock::time_point deadline) const {
    std::vector<SocketWait> waits = {{&socket, wanted}, {&m_data.EndSocket(), kReadable}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return AwaitSockets(waits, static_cast<int>(std::max(left, 0ms).count())) && waits[0].ready &&
           !m_data.HasEnded();
}

// Leaves no socket when the configuration has ended.
void Connection::Connect() {
    constexpr const char* kTooLate = "the time is over";
    std::string reason;
    for (const Address& address : Resolve(m_data.cloudHost, m_data.port)) {
        if (m_data.HasEnded()) return;
        Socket socket;
        int error = socket.Connect(address);
        if (!error && !AwaitSocket(socket, kWritable, Clock::now() + kConnectPatience)) {
            reason = kTooLate;
            continue;
        }
        if (!error) error = socket.ConnectError();
        if (!error) {
            m_socket = std::move(socket);
            return;
        }
        reason = ErrorText(error);
    }
    if (!m_data.HasEnded()) throw std::runtime_error("no connection to " + m_data.cloudHost + ": " + reason);
}

void Connection::Establish() {
    const auto deadline = Clock::now() + kConnectPatience;
    m_output += m_tls.TakeOutput();
    while (!m_tls.IsEstablished()) {
        if (!FlushToCloud()) throw std::runtime_error("the cloud has closed the connection");
        if (!AwaitSocket(m_socket, kReadable, deadline)) {
            if (m_data.HasEnded()) return;
            throw std::runtime_error("the cloud does not answer");
        }
        if (!ReceiveFromCloud())
            throw std::runtime_error(m_tls.Reason().empty() ? "the cloud has closed the connection"
                                                            : m_tls.Reason());
    }
}

std::vector<SocketWait> Connection::Waits() const {
    const unsigned ofCloud = m_output.empty() ? kReadable : kReadable | kWritable;
    std::vector<SocketWait> waits = {{&m_data.EndSocket(), kReadable}, {&m_socket, ofCloud}};
    for (const auto& [number, stream] : m_streams) {
        const bool reads = stream.isConnected && stream.credit != 0 && m_output.size() < kMaxOutput;
        const bool writes = !stream.isConnected || !stream.pending.empty();
        waits.push_back({&stream.socket, (reads ? kReadable : 0U) | (writes ? kWritable : 0U)});
    }
    return waits;
}

int Connection::Timeout() const {
    return static_cast<int>(m_settings.silence) * 1000 / 3 + 1;
}

void Connection::Wait() {
    std::vector<SocketWait> waits = Waits();
    if (!AwaitSockets(waits, Timeout())) {
        m_isOver = true;
        return;
    }
    if (waits[1].ready && !ReceiveFromCloud()) {
        m_isOver = true;
        if (!m_tls.Reason().empty()) LogLine(kLogError, m_tls.Reason());
        return;
    }
    // A frame may open or end streams; the waits are of those before.
    ServeStreams(waits);
    HandleFrames();
    KeepAlive();
    m_isOver |= !FlushToCloud();
}

void Connection::KeepAlive() {
    const auto now = Clock::now();
    const std::chrono::seconds silence(m_settings.silence);
    if (now - m_lastByte > silence) {
        LogLine(kLogError, "the cloud is silent");
        m_isOver = true;
    } else if (now - m_lastPing > silence / 3) {
        m_lastPing = now;
        Send(FrameType::Ping, 0);
    }
}

bool Connection::ReceiveFromCloud() {
    char block[kBlock];
    const std::ptrdiff_t size = m_socket.Receive(block, sizeof block);
    if (size <= 0) return size == 0;
    m_lastByte = Clock::now();
    std::string received;
    const bool goesOn = m_tls.Feed({block, static_cast<size_t>(size)}, received);
    m_frames.Feed(received);
    m_output += m_tls.TakeOutput();
    return goesOn;
}

bool Connection::FlushToCloud() {
    m_output += m_tls.TakeOutput();
    while (!m_output.empty()) {
        const std::ptrdiff_t size = m_socket.Send(m_output);
        if (size <= 0) return size == 0;
        m_output.erase(0, static_cast<size_t>(size));
    }
    return true;
}

void Connection::Send(FrameType type, uint32_t stream, std::string_view payload) {
    m_isOver |= !m_tls.Send(Encode(type, stream, payload));
    m_output += m_tls.TakeOutput();
}

void Connection::HandleFrames() {
    bool isBroken = false;
    while (const auto frame = m_frames.Next(isBroken))
        Handle(*frame);
    if (!isBroken) return;
    LogLine(kLogError, "the cloud has sent a frame that is too long");
    m_isOver = true;
}

void Connection::Handle(const Frame& frame) {
    const auto stream = m_streams.find(frame.stream);
    switch (frame.type) {
        case FrameType::Open:
            return Open(frame.stream, frame.payload);
        case FrameType::Data:
            return TakeData(frame.stream, frame.payload);
        case FrameType::Close:
            if (stream == m_streams.end()) return;
            if (stream->second.isConnected) FlushToPort(stream->first, stream->second);
            m_streams.erase(stream);
            return;
        case FrameType::Credit:
            if (stream != m_streams.end())
                stream->second.credit = std::min(stream->second.credit + NumberOf(frame.payload), kWindow);
            return;
        case FrameType::Ping:
            return Send(FrameType::Pong, 0);
        case FrameType::Pong:
            return;
        default:
            LogLine(kLogError, "the cloud has sent an unknown frame");
            m_isOver = true;
    }
}

void Connection::Open(uint32_t number, const std::string& target) {
    const size_t colon = target.rfind(':');
    const Endpoint endpoint{target.substr(0, colon),
                            colon == std::string::npos ? "" : target.substr(colon + 1)};
    const auto refuse = [&](const std::string& reason) {
        LogLine(kLogInfo, "refused " + target + ": " + reason);
        Send(FrameType::Refused, number, reason);
    };
    if (m_streams.contains(number) || m_streams.size() >= kMaxStreams) return refuse("too many connections");
    if (!m_data.filter || !m_data.filter(m_data.context, &endpoint)) return refuse("not allowed");
    uint16_t port = PortOf(endpoint.port);
    if (const auto mapped = m_settings.ports.find(port); mapped != m_settings.ports.end())
        port = mapped->second;
    Stream stream;
    stream.target = target;
    if (const int error = stream.socket.Connect(Loopback(port))) return refuse(ErrorText(error));
    m_streams[number] = std::move(stream);
}

void Connection::TakeData(uint32_t number, const std::string& bytes) {
    const auto stream = m_streams.find(number);
    if (stream == m_streams.end()) return;  // it has ended on this side
    stream->second.pending += bytes;
    if (stream->second.pending.size() <= kWindow) return;
    LogLine(kLogError, "the cloud has sent more than it may");
    m_isOver = true;
}

void Connection::ServeStreams(const std::vector<SocketWait>& waits) {
    size_t index = 2;
    for (auto stream = m_streams.begin(); stream != m_streams.end(); ++index) {
        const bool goesOn = Serve(stream->first, stream->second, waits[index].ready);
        stream = goesOn ? std::next(stream) : m_streams.erase(stream);
    }
}

bool Connection::Serve(uint32_t number, Stream& stream, unsigned ready) {
    if (!ready) return true;
    if (!stream.isConnected) {
        if (const int error = stream.socket.ConnectError()) {
            LogLine(kLogInfo, "refused " + stream.target + ": " + ErrorText(error));
            Send(FrameType::Refused, number, ErrorText(error));
            return false;
        }
        stream.isConnected = true;
        LogLine(kLogInfo, "opened " + stream.target);
        Send(FrameType::Opened, number);
    }
    const bool goesOn = FlushToPort(number, stream) && (!(ready & kReadable) || ReadFromPort(number, stream));
    if (!goesOn) Send(FrameType::Close, number);
    return goesOn;
}

bool Connection::FlushToPort(uint32_t number, Stream& stream) {
    while (!stream.pending.empty()) {
        const std::ptrdiff_t size = stream.socket.Send(stream.pending);
        if (size <= 0) return size == 0;
        stream.pending.erase(0, static_cast<size_t>(size));
        stream.taken += static_cast<uint32_t>(size);
    }
    if (stream.taken != 0) Send(FrameType::Credit, number, Number(std::exchange(stream.taken, 0)));
    return true;
}

bool Connection::ReadFromPort(uint32_t number, Stream& stream) {
    char block[kBlock];
    if (stream.credit == 0) return true;
    const std::ptrdiff_t size = stream.socket.Receive(block, std::min<size_t>(sizeof block, stream.credit));
    if (size <= 0) return size == 0;
    stream.credit -= static_cast<uint32_t>(size);
    Send(FrameType::Data, number, {block, static_cast<size_t>(size)});
    return true;
}
