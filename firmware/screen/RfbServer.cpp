#include "firmware/screen/RfbServer.h"

#include <fcntl.h>
#include <poll.h>
#include <rfb/rfb.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

namespace mpm {

namespace {

constexpr int kTile = 64;
constexpr std::chrono::seconds kRetry{5};

void BeSilent(const char*, ...) {}

}  // namespace

RfbServer::RfbServer(testbed::Descriptor socket, MakeInput makeInput, std::function<void()> news)
    : m_socket(std::move(socket)),
      m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_makeInput(std::move(makeInput)),
      m_news(std::move(news)) {
    m_thread = std::thread(&RfbServer::Main, this);
}

RfbServer::~RfbServer() {
    Stop();
    m_thread.join();
}

void RfbServer::Stop() {
    m_stopping = true;
    // Ends what the thread reads or writes.
    shutdown(m_socket.Get(), SHUT_RDWR);
    eventfd_write(m_wake.Get(), 1);
}

void RfbServer::Show(std::shared_ptr<const Picture> picture) {
    {
        std::lock_guard lock(m_mutex);
        m_next = std::move(picture);
    }
    eventfd_write(m_wake.Get(), 1);
}

std::shared_ptr<const Picture> RfbServer::TakeNext() {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_next, nullptr);
}

std::vector<std::string> RfbServer::CollectNotes() {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_notes, {});
}

RfbServer::Counts RfbServer::Count() const {
    return {m_keys, m_pointerEvents, m_dropped, m_updates};
}

void RfbServer::Note(const std::string& text) {
    {
        std::lock_guard lock(m_mutex);
        m_notes.push_back(text);
    }
    m_news();
}

void RfbServer::Main() {
    // The library writes to sockets that may be closed.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    try {
        Serve();
    } catch (const std::exception& error) {
        Note(error.what());
    }
    m_input.reset();
    shutdown(m_socket.Get(), SHUT_RDWR);
    m_finished = true;
    m_news();
}

// False when the connection is to end. Returns for a picture, and for bytes of the viewer.
bool RfbServer::AwaitNews() {
    pollfd waits[] = {{m_wake.Get(), POLLIN, 0}, {m_client, POLLIN, 0}};
    while (poll(waits, std::size(waits), -1) < 0) {
    }
    eventfd_t count = 0;
    eventfd_read(m_wake.Get(), &count);
    return !m_stopping;
}

void RfbServer::Serve() {
    std::shared_ptr<const Picture> picture;
    while (!picture) {
        if (!AwaitNews()) return;
        picture = TakeNext();
    }
    rfbLog = rfbErr = BeSilent;
    const std::unique_ptr<rfbScreenInfo, void (*)(rfbScreenInfo*)> screen(
        rfbGetScreen(nullptr, nullptr, picture->Width(), picture->Height(), 8, 3, 4),
        [](rfbScreenInfo* owned) {
            rfbShutdownServer(owned, TRUE);
            rfbScreenCleanup(owned);
        });
    if (!screen) throw std::runtime_error("there is no memory for the viewer's screen");
    m_screen = screen.get();
    m_screen->serverFormat.redShift = 16;
    m_screen->serverFormat.blueShift = 0;
    m_screen->screenData = this;
    m_screen->desktopName = "mpmsim";
    m_screen->cursor = nullptr;
    m_screen->deferUpdateTime = 0;
    m_screen->alwaysShared = TRUE;
    m_screen->autoPort = FALSE;
    m_screen->port = m_screen->ipv6port = 0;  // opens no port
    m_screen->kbdAddEvent = [](rfbBool down, rfbKeySym keysym, rfbClientRec* client) {
        ++Of(client).m_keys;
        Of(client).Act([&](ViewerInput& input) { input.Key(down, keysym); });
    };
    m_screen->ptrAddEvent = [](int buttons, int x, int y, rfbClientRec* client) {
        ++Of(client).m_pointerEvents;
        const rfbScreenInfo& seen = *client->screen;
        Of(client).Act(
            [&](ViewerInput& input) { input.Pointer(uint8_t(buttons), x, y, seen.width, seen.height); });
    };
    m_screen->displayFinishedHook = [](rfbClientRec* client, int) { ++Of(client).m_updates; };
    Update(picture);
    rfbInitServer(m_screen);
    m_client = fcntl(m_socket.Get(), F_DUPFD_CLOEXEC, 0);
    if (!rfbNewClient(m_screen, m_client)) return;
    while (m_screen->clientHead && AwaitNews()) {
        if (const auto next = TakeNext()) Update(next);
        rfbProcessEvents(m_screen, 0);
    }
}

RfbServer& RfbServer::Of(rfbClientRec* client) {
    return *static_cast<RfbServer*>(client->screen->screenData);
}

void RfbServer::Update(const std::shared_ptr<const Picture>& picture) {
    if (!m_shown || m_shown->Width() != picture->Width() || m_shown->Height() != picture->Height())
        Resize(*picture);
    ConvertChanges(*picture);
    m_shown = picture;
}

void RfbServer::Resize(const Picture& picture) {
    Pixels pixels(size_t(picture.Width()) * size_t(picture.Height()) * 4);
    auto* bytes = reinterpret_cast<char*>(pixels.data());
    if (m_shown) {
        rfbNewFramebuffer(m_screen, bytes, picture.Width(), picture.Height(), 8, 3, 4);
        m_screen->serverFormat.redShift = 16;
        m_screen->serverFormat.blueShift = 0;
    } else {
        m_screen->frameBuffer = bytes;
    }
    m_pixels = std::move(pixels);
    m_shown = nullptr;
}

void RfbServer::ConvertChanges(const Picture& picture) {
    const size_t stride = size_t(picture.Width()) * 4;
    const bool comparable = m_shown && picture.IsLike(*m_shown);
    for (int y = 0; y < picture.Height(); y += kTile) {
        const int height = std::min(kTile, picture.Height() - y);
        // Neighbours that have changed become one rectangle.
        Rectangle changed{0, y, 0, height};
        for (int x = 0; x <= picture.Width(); x += kTile) {
            const Rectangle tile{x, y, std::min(kTile, picture.Width() - x), height};
            const bool differs = tile.width > 0 && !(comparable && picture.IsSameIn(tile, *m_shown));
            if (differs) {
                if (changed.width == 0) changed.x = x;
                changed.width = x + tile.width - changed.x;
            }
            if (changed.width == 0 || (differs && x + kTile <= picture.Width())) continue;
            picture.ConvertTo(m_pixels.data(), stride, changed);
            rfbMarkRectAsModified(m_screen, changed.x, changed.y, changed.x + changed.width,
                                  changed.y + changed.height);
            changed.width = 0;
        }
    }
}

// Without a place for them, keys and mouse are counted and dropped.
void RfbServer::Act(const std::function<void(ViewerInput&)>& act) {
    const auto now = std::chrono::steady_clock::now();
    if (!m_input && now < m_nextTry) return void(++m_dropped);
    try {
        if (!m_input) m_input = m_makeInput();
        act(*m_input);
    } catch (const std::exception& error) {
        m_input.reset();
        ++m_dropped;
        if (m_nextTry == decltype(m_nextTry)())
            Note(std::string(error.what()) + "; the viewer's keys and mouse are dropped");
        m_nextTry = now + kRetry;
    }
}

}  // namespace mpm
