// What the pages see and can do, apart from how their bytes travel: the feeds of events and of the log, which
// each page follows at its own pace, and the messages by which a page acts. Of the web server's thread, with
// workers for what may take time.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "firmware/Firmware.h"
#include "firmware/screen/ViewerInput.h"
#include "firmware/web/Feed.h"
#include "firmware/web/Inbox.h"
#include "firmware/web/LogFollower.h"
#include "firmware/web/Messages.h"
#include "firmware/web/PcClient.h"
#include "firmware/web/ScreenTap.h"
#include "firmware/web/Worker.h"

namespace mpm::web {

// A whole message to a page; null when there is none.
struct Outgoing {
    bool binary = false;
    std::shared_ptr<const std::string> data;
    explicit operator bool() const { return data != nullptr; }
};

class Lab {
  public:
    using PageId = uint64_t;
    // Serves a request of the control socket. Called on a worker's thread.
    using Handle = std::function<Json::Value(const Json::Value& request)>;
    struct Options {
        std::string pc, log, dash;  // where they are; empty for none
        bool vnc = false;           // the page has a VNC client and a port for it
        // Makes the firmware pull frames without a viewer, or no longer. Throws std::runtime_error.
        std::function<void(bool)> hold;
    };

    // `wake` is called on any thread when Deliver has something to do.
    Lab(Firmware& firmware, Handle handle, std::shared_ptr<Inbox> inbox, Options options,
        std::function<void()> wake);
    ~Lab();

    PageId Open();
    void Close(PageId page);
    void Receive(PageId page, std::string_view text);
    // Whether the page waits for so many answers that it should not be read from.
    bool IsBusy(PageId page) const;
    // What the page gets next.
    Outgoing Next(PageId page);

    // Collects what is new, at most once in kPeriod. Not needed without pages.
    static constexpr std::chrono::milliseconds kPeriod{50};
    void Tick();
    // Takes over what the workers have finished.
    void Deliver();
    // Whether the firmware is made to pull frames.
    void SetHeld(bool held) { m_held = held; }

  private:
    using Clock = std::chrono::steady_clock;
    enum class Watch { Off, Av1, Picture };
    struct Page {
        bool greeted = false;
        uint64_t wire = 0, log = 0;                           // cursors
        uint64_t host = 0, state = 0, screen = 0, ticks = 0;  // versions that it has had
        std::deque<Outgoing> answers;
        size_t waiting = 0;  // answers to come
        Watch watch = Watch::Off;
        uint64_t frame = 0, picture = 0;  // cursors
        Clock::time_point pictureTime;
        bool usedInput = false;
    };
    // A JSON text of which pages get the newest version only.
    struct Status {
        std::string text;
        uint64_t version = 0;
        void Set(std::string newest);
    };

    void Post(std::function<void()> call);
    Page* Find(PageId page);
    void Answer(PageId page, std::string text);
    void AnswerLater(PageId page, std::string text);
    void Act(PageId page, PageMessage message);
    void Greet(PageId page, const PageMessage& message);
    void FinishGreeting(PageId page, const PageMessage& message);
    void Control(PageId page, const PageMessage& message);
    void AskPc(PageId page, const PageMessage& message);
    void WatchScreen(PageId page, const PageMessage& message);
    void CountWatchers();
    void Hold(PageId page, const PageMessage& message);
    void Input(PageId page, const PageMessage& message);
    void ReleaseInput();
    void RunOn(Worker& worker, PageId page, uint64_t id, std::function<Json::Value()> work);
    Json::Value Bytes(const PageMessage& message) const;
    Json::Value Features() const;
    std::string BatchFor(Page& page);
    void DrainInbox();
    void ReadLog();
    void RefreshHost();
    void RefreshScreen();
    void RefreshState();
    // Has the firmware's thread put the status together, as the answer to a request of the control socket.
    bool Refresh(const char* verb, Status& status, bool& asked);
    Outgoing FrameFor(Page& page);
    Outgoing PictureFor(Page& page);

    Firmware& m_firmware;
    const Handle m_handle;
    const std::shared_ptr<Inbox> m_inbox;
    const Options m_options;
    const std::function<void()> m_wake;

    std::map<PageId, Page> m_pages;
    PageId m_lastPage = 0;
    Feed<WireEntry> m_wire;
    Feed<LogLine> m_log;
    std::optional<LogFollower> m_follower;
    Status m_host, m_screen, m_state;
    uint64_t m_ticks = 0;
    bool m_hostMayDiffer = true, m_hostAsked = false, m_screenAsked = false;
    bool m_watched = false, m_held = false;
    Clock::time_point m_hostTime, m_screenTime, m_pcTime;
    const std::shared_ptr<ScreenTap> m_tap;
    std::shared_ptr<const std::string> m_pictureMessage;  // of the picture with this serial number
    uint64_t m_pictureSerial = 0;
    bool m_pcOn = false;
    Json::Value m_pcHelp;
    // Of the worker for input alone.
    std::unique_ptr<ViewerInput> m_input;
    std::string m_display;

    std::mutex m_mutex;  // guards what follows
    std::vector<std::function<void()>> m_finished;
    // Last, so that their threads end first.
    std::optional<PcClient> m_pc;
    Worker m_worker, m_inputWorker;
};

}  // namespace mpm::web
