#include "firmware/web/Lab.h"

#include "firmware/Report.h"

namespace mpm::web {

namespace {

// A page that reads as fast as it can gets so much at a time, every kPeriod.
constexpr size_t kMostInBatch = 500;
constexpr size_t kMostBatchBytes = 256u << 10;
constexpr size_t kMostWaitingAnswers = 8;
constexpr size_t kMostJobs = 1024;
constexpr std::chrono::milliseconds kHostPeriod{200}, kQuietHostPeriod{2000}, kPcPeriod{1000},
    kScreenPeriod{1000};

void AddMember(std::string& object, const char* name, const std::string& json) {
    (object += object.empty() ? "{\"" : ",\"").append(name).append("\":").append(json);
}

}  // namespace

void Lab::Status::Set(std::string newest) {
    if (newest == text) return;
    text = std::move(newest);
    ++version;
}

Lab::Lab(Firmware& firmware, Handle handle, std::shared_ptr<Inbox> inbox, Options options,
         std::function<void()> wake)
    : m_firmware(firmware),
      m_handle(std::move(handle)),
      m_inbox(std::move(inbox)),
      m_options(std::move(options)),
      m_wake(std::move(wake)),
      m_wire(kMaxEntries, kMaxEntryBytes, [](uint64_t, const WireEntry& entry) { return entry.ToJson(); }),
      m_log(kMaxEntries, kMaxEntryBytes,
            [](uint64_t serial, const LogLine& line) { return line.ToJson(serial); }),
      m_tap(std::make_shared<ScreenTap>(m_wake)),
      m_worker(kMostJobs),
      m_inputWorker(kMostJobs) {
    if (!m_options.log.empty()) m_follower.emplace(m_options.log);
    if (!m_options.pc.empty()) m_pc.emplace(m_options.pc);
    m_firmware.ObserveScreen(m_tap);
}

Lab::~Lab() {
    m_tap->Disconnect();
    m_firmware.ObserveScreen(nullptr);
}

Lab::PageId Lab::Open() {
    m_pages[++m_lastPage];
    return m_lastPage;
}

void Lab::Close(PageId page) {
    const Page* const found = Find(page);
    if (found && found->usedInput) ReleaseInput();
    m_pages.erase(page);
    CountWatchers();
}

Lab::Page* Lab::Find(PageId page) {
    const auto found = m_pages.find(page);
    return found == m_pages.end() ? nullptr : &found->second;
}

bool Lab::IsBusy(PageId page) const {
    const auto found = m_pages.find(page);
    return found != m_pages.end() &&
           found->second.waiting + found->second.answers.size() >= kMostWaitingAnswers;
}

void Lab::Answer(PageId page, std::string text) {
    if (Page* const found = Find(page))
        found->answers.push_back({false, std::make_shared<const std::string>(std::move(text))});
}

Outgoing Lab::Next(PageId id) {
    Page& page = m_pages.at(id);
    if (!page.answers.empty()) {
        Outgoing answer = std::move(page.answers.front());
        page.answers.pop_front();
        return answer;
    }
    if (!page.greeted) return {};
    if (std::exchange(page.ticks, m_ticks) != m_ticks)
        if (std::string batch = BatchFor(page); !batch.empty())
            return {false, std::make_shared<const std::string>(std::move(batch))};
    return FrameFor(page);
}

std::string Lab::BatchFor(Page& page) {
    const auto wire = m_wire.Take(page.wire, kMostInBatch, kMostBatchBytes);
    const auto log = m_log.Take(page.log, kMostInBatch, kMostBatchBytes);
    std::string batch, dropped;
    if (wire.dropped) AddMember(dropped, "wire", std::to_string(wire.dropped));
    if (log.dropped) AddMember(dropped, "log", std::to_string(log.dropped));
    if (!dropped.empty()) AddMember(batch, "dropped", dropped + "}");
    if (!wire.array.empty()) AddMember(batch, "wire", wire.array);
    if (!log.array.empty()) AddMember(batch, "log", log.array);
    if (std::exchange(page.host, m_host.version) != m_host.version) AddMember(batch, "host", m_host.text);
    if (std::exchange(page.screen, m_screen.version) != m_screen.version)
        AddMember(batch, "screen", m_screen.text);
    if (std::exchange(page.state, m_state.version) != m_state.version)
        AddMember(batch, "state", m_state.text);
    return batch.empty() ? batch : batch + "}";
}

void Lab::Tick() {
    ++m_ticks;
    DrainInbox();
    ReadLog();
    RefreshHost();
    RefreshScreen();
    RefreshState();
}

void Lab::DrainInbox() {
    for (WireEntry& entry : m_inbox->TakeAll()) {
        const uint64_t serial = entry.serial;
        m_wire.Add(serial, std::move(entry));
        m_hostMayDiffer = true;
    }
}

void Lab::ReadLog() {
    if (!m_follower) return;
    for (LogLine& line : m_follower->Poll())
        m_log.Add(m_log.Newest() + 1, std::move(line));
}

bool Lab::Refresh(const char* verb, Status& status, bool& asked) {
    return m_worker.Post([this, verb, &status, &asked] {
        std::string text;
        try {
            Json::Value request;
            request["verb"] = verb;
            text = Compact(m_handle(request));
        } catch (const std::exception&) {
            // Without a display client there is no screen.
        }
        Post([&status, &asked, text] {
            asked = false;
            if (!text.empty()) status.Set(text);
        });
    });
}

// The firmware is not asked more often than pages can show.
void Lab::RefreshHost() {
    const auto age = Clock::now() - m_hostTime;
    if (m_hostAsked || age < (m_hostMayDiffer ? kHostPeriod : kQuietHostPeriod)) return;
    m_hostAsked = Refresh("show", m_host, m_hostAsked);
    m_hostTime = Clock::now();
    m_hostMayDiffer = false;
}

void Lab::RefreshScreen() {
    if (!m_watched || m_screenAsked || Clock::now() - m_screenTime < kScreenPeriod) return;
    m_screenAsked = Refresh("screen", m_screen, m_screenAsked);
    m_screenTime = Clock::now();
}

void Lab::RefreshState() {
    if (m_pc && Clock::now() - m_pcTime >= kPcPeriod) {
        m_pcTime = Clock::now();
        m_pcOn = m_pc->IsOn();
    }
    Json::Value state;
    state["listening"] = m_firmware.HostListening();
    state["vanished"] = m_inbox->Vanished();
    state["pc"] = !m_pc ? "none" : m_pcOn ? "on" : "off";
    state["pages"] = Json::UInt64(m_pages.size());
    state["held"] = m_held;
    m_state.Set(Compact(state));
}

void Lab::Post(std::function<void()> call) {
    {
        std::lock_guard lock(m_mutex);
        m_finished.push_back(std::move(call));
    }
    m_wake();
}

void Lab::Deliver() {
    std::vector<std::function<void()>> finished;
    {
        std::lock_guard lock(m_mutex);
        finished.swap(m_finished);
    }
    for (const auto& call : finished)
        call();
}

}  // namespace mpm::web
