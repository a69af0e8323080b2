#include "firmware/screen/DisplayClient.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "firmware/Bridge.h"
#include "firmware/screen/VirtualDevices.h"
#include "testbed/Json.h"

namespace mpm {

namespace {

using std::chrono::milliseconds;

RfbServer::Counts operator+(RfbServer::Counts a, const RfbServer::Counts& b) {
    a.keys += b.keys;
    a.pointerEvents += b.pointerEvents;
    a.dropped += b.dropped;
    a.updates += b.updates;
    return a;
}

std::string Summary(const Json::Value& frames) {
    const Json::Value& times = frames["milliseconds"];
    return frames["count"].asString() + " frames in " + testbed::Compact(frames["seconds"]) + " s, " +
           testbed::Compact(frames["perSecond"]) + " a second, " + frames["averageBytes"].asString() +
           " bytes each; from the request to the last chunk median " + testbed::Compact(times["median"]) +
           " ms, p95 " + testbed::Compact(times["p95"]) + " ms";
}

}  // namespace

DisplayClient::DisplayClient(EventLoop& loop, const ScreenSettings& settings, Host host)
    : m_loop(loop),
      m_settings(settings),
      m_host(std::move(host)),
      m_news(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_assembler(settings.MaxFrame),
      m_decoder([this] { eventfd_write(m_news.Get(), 1); }) {
    m_newsWatch = m_loop.Watch(m_news.Get(), EPOLLIN, [this](uint32_t) { OnNews(); });
}

DisplayClient::~DisplayClient() {
    Cancel(m_dueTimer);
    Cancel(m_silenceTimer);
    m_loop.Unwatch(m_newsWatch);
}

void DisplayClient::Adopt(const ScreenSettings& settings) {
    m_settings = settings;
    m_assembler.LimitFrames(settings.MaxFrame);
}

void DisplayClient::Cancel(EventLoop::TimerId& timer) {
    if (timer) m_loop.Cancel(std::exchange(timer, 0));
}

void DisplayClient::Fault(const std::string& text) {
    ++m_faults;
    m_lastFault = text;
    m_host.note(text);
}

void DisplayClient::Ask() {
    m_askedForConfiguration = true;
    m_host.send(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
}

void DisplayClient::Configure(uint32_t width, uint32_t height) {
    m_configured = true;
    m_width = width;
    m_height = height;
    if (!m_viewer) BeginStream();
    m_due = Clock::now() + milliseconds(m_settings.Settle);
    Next();
}

// The host's first frame may come before the viewer, and the later ones build on it.
void DisplayClient::BeginStream() {
    m_streamBegun = true;
    m_meter = {};
    m_before = {};
    m_shown = m_observed = nullptr;
    if (m_observer) m_observer->BeginStream();
    m_decoder.Begin(m_settings.Ivf, m_width, m_height);
}

std::unique_ptr<StreamPeer> DisplayClient::AcceptViewer() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    testbed::Descriptor mine(pair[0]), servers(pair[1]);
    fcntl(mine.Get(), F_SETFL, O_NONBLOCK);
    if (!m_viewer) ++m_sessions;
    if (!m_streamBegun) BeginStream();
    StopViewer();
    ++m_viewers;
    m_viewerStays = std::make_shared<bool>(true);
    m_viewer = std::make_unique<RfbServer>(
        std::move(servers),
        [display = m_settings.Display] { return std::make_unique<VirtualDevices>(display); },
        [this] { eventfd_write(m_news.Get(), 1); });
    ShowNewest();
    // Turned on while the host had its port open already.
    if (!m_askedForConfiguration) Ask();
    Next();
    return std::make_unique<Bridge>(m_loop, std::move(mine), milliseconds(0), m_host.sendToViewer,
                                    m_host.isBehind,
                                    [stays = m_viewerStays, send = m_host.send](const std::string&) {
                                        if (*stays) send(MPM_ZEL_CMD_VNC_SOC_CLOSE);
                                    });
}

void DisplayClient::StopViewer() {
    if (!m_viewer) return;
    m_before = m_before + m_viewer->Count();
    *m_viewerStays = false;
    m_viewer->Stop();
    m_ending.push_back(std::move(m_viewer));
}

void DisplayClient::End() {
    Cancel(m_dueTimer);
    Cancel(m_silenceTimer);
    if (m_viewer) m_host.note("the session has ended: " + Summary(m_meter.ToJson()));
    StopViewer();
    m_askedForConfiguration = m_configured = m_streamBegun = m_outstanding = m_failing = false;
    m_failuresInARow = 0;
    m_assembler.Reset();
}

// Asks for the next chunk as soon as it may: there is one request at a time, the chunks of a frame follow
// each other at once, and a new frame waits for its time and for the decoder.
void DisplayClient::Next() {
    if (!m_viewer || !m_configured || m_outstanding || m_dueTimer) return;
    if (m_assembler.InFrame()) return Request();
    if (m_decoder.Waiting() > kMaxWaiting) return;
    if (const auto left = m_due - Clock::now(); left > Clock::duration::zero()) {
        m_dueTimer = m_loop.After(left, [this] {
            m_dueTimer = 0;
            Next();
        });
        return;
    }
    Request();
}

void DisplayClient::Request() {
    if (!m_assembler.InFrame()) {
        const auto period = Clock::duration(std::chrono::seconds(1)) / m_settings.FrameRate;
        m_frameAsked = Clock::now();
        // What was late is not made up for.
        m_due = (m_frameAsked - m_due < period ? m_due : m_frameAsked) + period;
    }
    m_outstanding = true;
    if (m_settings.Patience > 0)
        m_silenceTimer = m_loop.After(milliseconds(m_settings.Patience), [this] { OnSilence(); });
    m_host.send(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
}

void DisplayClient::OnSilence() {
    m_silenceTimer = 0;
    m_outstanding = false;
    ++m_repeats;
    Fault("no chunk for " + std::to_string(m_settings.Patience) + " ms; the request is repeated");
    Request();
}

void DisplayClient::TakeChunk(std::span<const uint8_t> record) {
    if (!m_outstanding) {
        Fault("a chunk that was not asked for");
        if (!m_assembler.InFrame()) m_frameAsked = Clock::now();
    }
    m_outstanding = false;
    Cancel(m_silenceTimer);
    const FrameAssembler::Result result = m_assembler.Take(record);
    if (!result.fault.empty()) Fault(result.fault);
    if (result.captureFailed) {
        ++m_captureFailures;
        ++m_failuresInARow;
        m_failing = true;
        Fault("the capture failed: the host answers the next " +
              std::to_string(FrameAssembler::kEmptyChunks) + " requests with empty chunks");
    }
    if (m_failing && !m_assembler.InFrame()) PauseAfterFailure();
    if (result.complete) TakeFrame();
    Next();
}

void DisplayClient::TakeFrame() {
    m_failuresInARow = 0;
    std::vector<uint8_t> frame = m_assembler.TakeFrame();
    const auto now = Clock::now();
    m_meter.Add(m_frameAsked, now, frame.size(), m_assembler.Chunks());
    if (m_meter.Frames() == 1)
        m_host.note("the first frame has come: " + std::to_string(frame.size()) + " bytes");
    if (m_observer) {
        const auto complete = std::chrono::system_clock::now();
        const auto took = std::chrono::duration_cast<std::chrono::microseconds>(now - m_frameAsked);
        m_observer->TakeFrame(
            {frame, m_width, m_height, uint32_t(m_meter.Frames()), complete - took, complete});
    }
    m_decoder.Push(std::move(frame));
}

// A host that cannot capture at all would else be kept busy with empty chunks.
void DisplayClient::PauseAfterFailure() {
    m_failing = false;
    constexpr unsigned kMostDoublings = 5;
    const auto pause = std::chrono::seconds(1u << std::min(m_failuresInARow - 1, kMostDoublings));
    m_due = std::max(m_due, Clock::now() + pause);
}

void DisplayClient::ShowNewest() {
    m_shown = m_decoder.Newest();
    if (m_shown) m_viewer->Show(m_shown);
}

void DisplayClient::ObserveNewest() {
    const auto newest = m_decoder.Newest();
    if (!m_observer || !newest || newest == m_observed) return;
    m_observed = newest;
    m_observer->TakePicture(newest);
}

void DisplayClient::OnNews() {
    eventfd_t count = 0;
    eventfd_read(m_news.Get(), &count);
    for (const std::string& note : m_decoder.CollectNotes())
        Fault(note);
    ObserveNewest();
    if (m_viewer) {
        for (const std::string& note : m_viewer->CollectNotes())
            m_host.note(note);
        if (m_decoder.Newest() != m_shown) ShowNewest();
    }
    m_ending.remove_if([](const auto& ending) { return ending->Finished(); });
    Next();
}

const char* DisplayClient::State() const {
    if (!m_viewer) return m_configured ? "waits for a viewer" : "idle";
    if (!m_configured) return "waits for the display configuration";
    return "pulls frames";
}

Json::Value DisplayClient::ToJson() const {
    Json::Value object;
    object["state"] = State();
    object["sessions"] = Json::Int64(m_sessions);
    if (m_configured) {
        object["width"] = Json::Int64(m_width);
        object["height"] = Json::Int64(m_height);
    }
    object["frames"] = m_meter.ToJson();
    object["decoded"] = m_decoder.ToJson();
    const RfbServer::Counts counts = m_viewer ? m_before + m_viewer->Count() : m_before;
    Json::Value& viewer = object["viewer"];
    viewer["connected"] = bool(m_viewer);
    viewer["connections"] = Json::Int64(m_viewers);
    viewer["updates"] = Json::Int64(counts.updates);
    viewer["keys"] = Json::Int64(counts.keys);
    viewer["pointerEvents"] = Json::Int64(counts.pointerEvents);
    viewer["dropped"] = Json::Int64(counts.dropped);
    Json::Value& faults = object["faults"];
    faults["count"] = Json::Int64(m_faults);
    faults["captureFailures"] = Json::Int64(m_captureFailures);
    faults["repeatedRequests"] = Json::Int64(m_repeats);
    if (!m_lastFault.empty()) faults["last"] = m_lastFault;
    return object;
}

}  // namespace mpm
