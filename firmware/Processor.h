// The firmware itself, behind the link: works on requests, holds what it knows of the host, and lets faults
// have their way. Everything here happens on the event loop's thread.
#pragma once

#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include "firmware/Catalogue.h"
#include "firmware/EventLoop.h"
#include "firmware/Faults.h"
#include "firmware/Firmware.h"
#include "firmware/RequestLog.h"
#include "firmware/StreamPeer.h"
#include "firmware/dash/DashEndpoint.h"
#include "firmware/link/LinkServer.h"
#include "firmware/screen/DisplayClient.h"
#include "mailbox/MailboxRecords.h"

namespace mpm {

class Processor {
  public:
    Processor(EventLoop& loop, RequestLog& log, Settings settings);
    ~Processor();

    void Listen(const std::string& address);
    const std::string& Address() const { return m_address; }
    void Vanish();
    void ComeBack();

    const Settings& Current() const { return m_settings; }
    void Adopt(Settings settings);
    Faults& CurrentFaults() { return m_faults; }
    void Release(const std::vector<std::string>& names);
    void ReleaseAll();
    Json::Value Host() const;

    void Send(uint8_t command, std::span<const uint8_t> payload, uint8_t trailer);
    void SendRaw(std::span<const uint8_t> message);
    // The payload in as few messages as hold it.
    void SendStream(uint8_t command, std::span<const uint8_t> payload);

    void OnDash(std::function<void(std::span<const uint8_t>)> take);
    void Observe(std::function<void(const Event&)> observer);

    void ObserveScreen(std::shared_ptr<ScreenObserver> observer);
    // Null unless Settings::Kvm is Peer::Screen.
    DisplayClient* Screen() { return m_screen.get(); }

    std::string Certificate() { return Endpoint().CertificatePem(); }

    // These two from any thread.
    bool HostListening() const;
    bool AwaitHostListening(std::chrono::milliseconds patience) const;

  private:
    // A request whose answer comes later.
    struct Pending {
        LinkRequest request;
        std::vector<uint8_t> input;
        const MailboxRequest* operation;
        Fault fault;
        EventLoop::TimerId timer = 0;  // 0: held
    };

    void OnRequest(const LinkRequest& request);
    void Record(const LinkRequest& request, const char* name, const std::string& fault);
    void Complete(const LinkRequest& request, const MailboxRequest& operation, const Fault& fault);
    void Postpone(const LinkRequest& request, const MailboxRequest& operation, const Fault& fault);
    void Forget(const std::function<bool(const Pending&)>& which);
    void Listening(bool listening);
    void Notify(Event::Kind kind, const std::string& name, uint32_t code, std::span<const uint8_t> data,
                const std::string& text);
    void Note(const std::string& what, const std::string& text = {});

    std::vector<uint8_t> OutputOf(uint32_t code) const;
    void StoreRecord(const MailboxRequest& operation, std::span<const uint8_t> input);
    void OnConnection(const IPCompleteInfo& info);
    void OnConnectionClosed(uint16_t port);
    // Ends the host's DASH connection, unless that has been done already: a second command would end the next
    // connection.
    void EndDash();
    void EndKvm();
    void TakeStream(const LinkRequest& request, uint8_t command, std::span<const uint8_t> answer);
    bool HostIsBehind() const;
    void HostHasRead();
    void AnswerPaced();
    std::unique_ptr<StreamPeer> MakePeer(uint8_t command);
    void Retire(std::unique_ptr<StreamPeer>& peer);
    DashEndpoint& Endpoint();
    void AdoptScreen();
    // Of the display client's traffic only sums are recorded.
    bool IsQuiet(uint32_t requestCode) const;
    bool IsQuiet(uint8_t command) const;

    EventLoop& m_loop;
    RequestLog& m_log;
    Settings m_settings;
    Faults m_faults;
    LinkServer m_link;
    std::string m_address;
    std::list<Pending> m_pending;
    std::vector<LinkRequest> m_paced;  // echoed packets whose answer waits until the host has read
    bool m_hostUp = false;
    std::map<std::string, std::vector<uint8_t>> m_host;  // the last accepted record by name
    std::optional<DashEndpoint> m_endpoint;              // made when it is first needed
    std::unique_ptr<DisplayClient> m_screen;
    std::shared_ptr<ScreenObserver> m_screenObserver;
    std::unique_ptr<StreamPeer> m_dash, m_kvm;  // of the connection that is open
    bool m_dashEnded = false;                   // by command 41, since the connection began
    // Peers whose connection has ended, until the loop's next round: they may be what is running.
    std::vector<std::unique_ptr<StreamPeer>> m_retired;
    // Shared with a call that runs, which may replace them.
    std::shared_ptr<const std::function<void(std::span<const uint8_t>)>> m_takeDash;
    std::shared_ptr<const std::function<void(const Event&)>> m_observer;

    mutable std::mutex m_listeningMutex;
    mutable std::condition_variable m_listeningChanged;
    bool m_listening = false;
};

}  // namespace mpm
