// One connection to the cloud, and the streams in it.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "companions/nubaapi/Configuration.h"
#include "companions/nubaapi/Frames.h"
#include "companions/nubaapi/Sockets.h"
#include "companions/nubaapi/Tls.h"

class Connection {
  public:
    Connection(InitData& data, const StandInSettings& settings);
    // Runs until the configuration ends it, the cloud ends it, or it fails. Throws std::runtime_error with
    // the reason when there is no connection.
    void Run();

  private:
    using Clock = std::chrono::steady_clock;

    // A console of the cloud on its way to a port of this host.
    struct Stream {
        Socket socket;
        bool isConnected = false;
        std::string pending;        // for the port
        uint32_t taken = 0;         // bytes that the port has taken since the last credit
        uint32_t credit = kWindow;  // what the cloud still takes
        std::string target;
    };

    void Connect();
    bool AwaitSocket(const Socket& socket, unsigned wanted, Clock::time_point deadline) const;
    void Establish();
    void Wait();
    std::vector<SocketWait> Waits() const;
    int Timeout() const;
    void KeepAlive();
    bool ReceiveFromCloud();
    bool FlushToCloud();
    void Send(FrameType type, uint32_t stream, std::string_view payload = {});
    void HandleFrames();
    void Handle(const Frame& frame);
    void Open(uint32_t number, const std::string& target);
    void TakeData(uint32_t number, const std::string& bytes);
    void ServeStreams(const std::vector<SocketWait>& waits);
    // Each returns false when the stream is over.
    bool Serve(uint32_t number, Stream& stream, unsigned ready);
    bool FlushToPort(uint32_t number, Stream& stream);
    bool ReadFromPort(uint32_t number, Stream& stream);

    InitData& m_data;
    const StandInSettings m_settings;
    Tls m_tls;
    Socket m_socket;
    std::string m_output;  // for the cloud
    FrameReader m_frames;
    std::string m_received;
    std::map<uint32_t, Stream> m_streams;
    Clock::time_point m_lastByte, m_lastPing;
    bool m_isOver = false;
};
