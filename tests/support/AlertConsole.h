// A management console that takes alerts over HTTP or HTTPS on 127.0.0.1, one connection after another, well
// or badly. Its times are real.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testbed/Descriptor.h"

class AlertConsole {
  public:
    enum class Certificate { None, SelfSigned, Expired, WrongName };  // None: HTTP
    enum class Behaviour {
        Answers,    // 200
        Redirects,  // 302, to the address in `redirectTo`
        IsSlow,     // answers, but reads in small pieces with pauses
        IsSilent,   // accepts the connection, and neither reads nor writes
        Resets,     // ends the connection with a reset as soon as it is there
        IsFull,     // its queue of connections is full, and it accepts none
    };

    explicit AlertConsole(Certificate certificate = Certificate::None,
                          Behaviour behaviour = Behaviour::Answers, std::string redirectTo = {});
    ~AlertConsole();
    AlertConsole(const AlertConsole&) = delete;
    AlertConsole& operator=(const AlertConsole&) = delete;

    uint16_t Port() const { return m_port; }
    // The certificate as PEM; empty for HTTP.
    const std::string& CertificateText() const { return m_certificateText; }

    // The requests so far, each with its body, oldest first.
    std::vector<std::string> Requests() const;
    // A silent console counts a connection as soon as bytes have come.
    size_t Connections() const { return m_connections; }
    // Waits until there are so many of them; the patience is in real time.
    bool AwaitRequests(size_t count, std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
    bool AwaitConnections(size_t count, std::chrono::milliseconds patience = std::chrono::seconds(20)) const;

    static std::string BodyOf(const std::string& request);
    static std::string HeadOf(const std::string& request);

  private:
    class Stream;

    void Listen();
    void FillQueue();
    void PrepareTls(Certificate certificate);
    void Run();
    void Serve(int connection);
    void Converse(Stream& stream);
    std::string Answer() const;
    bool AwaitInput(int descriptor) const;

    const Behaviour m_behaviour;
    const std::string m_redirectTo;
    std::string m_certificateText;
    std::shared_ptr<void> m_tls;
    uint16_t m_port = 0;
    testbed::Descriptor m_listener, m_stop;
    std::vector<testbed::Descriptor> m_fillers;
    std::atomic<size_t> m_connections{0};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_requests;
    std::thread m_thread;
};
