// The firmware's side of the screen: asks the host for the configuration of its display, pulls its frames at
// a steady rate, and shows them to the viewer whose stream the host forwards. On the event loop's thread;
// decoding and RFB have threads of their own.
#pragma once

#include <list>

#include "firmware/EventLoop.h"
#include "firmware/Settings.h"
#include "firmware/StreamPeer.h"
#include "firmware/screen/DecoderThread.h"
#include "firmware/screen/FrameAssembler.h"
#include "firmware/screen/FrameMeter.h"
#include "firmware/screen/RfbServer.h"
#include "firmware/screen/ScreenObserver.h"
#include "mailbox/MailboxCodes.h"

namespace mpm {

class DisplayClient {
  public:
    using Clock = EventLoop::Clock;
    // What it needs of the firmware.
    struct Host {
        std::function<void(MpmCommand)> send;
        std::function<void(std::span<const uint8_t>)> sendToViewer;
        std::function<bool()> isBehind;
        std::function<void(const std::string&)> note;
    };

    DisplayClient(EventLoop& loop, const ScreenSettings& settings, Host host);
    ~DisplayClient();

    // New values hold for the next frame; the file for the next session.
    void Adopt(const ScreenSettings& settings);
    // Null for none.
    void Observe(std::shared_ptr<ScreenObserver> observer) { m_observer = std::move(observer); }
    // Asks for the configuration (command 49); the host has to have it before a viewer connects.
    void Ask();
    void Configure(uint32_t width, uint32_t height);
    // A viewer has connected, and takes the place of the one before.
    std::unique_ptr<StreamPeer> AcceptViewer();
    // A record of WriteEncodedBuffer.
    void TakeChunk(std::span<const uint8_t> record);
    void End();

    std::shared_ptr<const Picture> Newest() const { return m_decoder.Newest(); }
    void ResetMeter() { m_meter = {}; }
    Json::Value ToJson() const;

  private:
    // Frames that wait for the decoder while another is asked for.
    static constexpr size_t kMaxWaiting = 1;

    void BeginStream();
    void ShowNewest();
    void ObserveNewest();
    void TakeFrame();
    void PauseAfterFailure();
    void Next();
    void Request();
    void OnSilence();
    void OnNews();
    void StopViewer();
    void Fault(const std::string& text);
    const char* State() const;
    void Cancel(EventLoop::TimerId& timer);

    EventLoop& m_loop;
    ScreenSettings m_settings;
    const Host m_host;
    testbed::Descriptor m_news;  // an eventfd that the other threads write to
    EventLoop::WatchId m_newsWatch = 0;

    bool m_askedForConfiguration = false;
    bool m_configured = false;
    bool m_streamBegun = false;  // the decoder has been started for the host's session
    uint32_t m_width = 0, m_height = 0;
    uint64_t m_sessions = 0, m_viewers = 0, m_captureFailures = 0, m_faults = 0, m_repeats = 0;
    std::string m_lastFault;
    FrameAssembler m_assembler;
    FrameMeter m_meter;
    unsigned m_failuresInARow = 0;   // captures
    bool m_failing = false;          // the empty chunks of a failed capture are under way
    bool m_outstanding = false;      // a request has no chunk yet
    Clock::time_point m_frameAsked;  // the first request of the frame
    Clock::time_point m_due;         // the earliest time of the next frame
    EventLoop::TimerId m_dueTimer = 0, m_silenceTimer = 0;

    DecoderThread m_decoder;
    std::shared_ptr<ScreenObserver> m_observer;
    std::shared_ptr<const Picture> m_shown, m_observed;
    std::unique_ptr<RfbServer> m_viewer;
    std::shared_ptr<bool> m_viewerStays;             // false once it was stopped from here
    std::list<std::unique_ptr<RfbServer>> m_ending;  // until their threads have ended
    RfbServer::Counts m_before;                      // of the session's earlier viewers
};

}  // namespace mpm
