#include "runtime/software/x11/X11Screen.h"

#include <utility>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

X11Screen::X11Screen(std::unique_ptr<X11Display> display, int64_t monitor)
    : m_display(std::move(display)),
      m_monitor(monitor),
      m_pool(std::make_shared<BlockPool>([server = std::weak_ptr(m_display->Shared())](size_t size) {
          const auto connection = server.lock();
          return connection ? SharedBlock::Make(size, connection) : nullptr;
      })) {}

bool X11Screen::Changed() {
    const X11Display::Events events = m_display->ReadEvents();
    m_resized |= events.resized;
    m_changed |= events.painted || events.resized;
    return m_changed || m_picture;
}

bool X11Screen::Alive() {
    return m_display->Alive() && m_failures < kMostFailures;
}

Ref<Surface> X11Screen::Take() {
    if (!m_picture && !((!m_resized || ReadArea()) && Request())) {
        return {};
    }
    return Finish();
}

// Returns false while the server has not answered.
bool X11Screen::ReadArea() {
    Area area{0, 0, m_display->RootSize()};
    if (m_display->HasMonitors()) {
        if (!m_monitorsRequest) {
            m_monitorsRequest =
                xcb_randr_get_monitors(m_display->Connection(), m_display->Root(), 1).sequence;
        }
        void* answer = nullptr;
        if (m_display->Await(*m_monitorsRequest, &answer) == X11Display::Answer::Pending) {
            return false;
        }
        m_monitorsRequest.reset();
        const UniqueReply<xcb_randr_get_monitors_reply_t> monitors(
            static_cast<xcb_randr_get_monitors_reply_t*>(answer));
        area = FindMonitor(monitors.get());
    }
    m_resized = false;
    if (area != m_area) {
        m_area = area;
        TraceLine(LUX_TRACE_INFO, "The capture shows %dx%d pixels of the X server, from %d,%d",
                  area.size.width, area.size.height, area.x, area.y);
    }
    return true;
}

X11Screen::Area X11Screen::FindMonitor(const xcb_randr_get_monitors_reply_t* monitors) const {
    if (monitors) {
        auto monitor = xcb_randr_get_monitors_monitors_iterator(monitors);
        for (int64_t index = 0; monitor.rem; ++index, xcb_randr_monitor_info_next(&monitor)) {
            if (index == m_monitor) {
                return {monitor.data->x, monitor.data->y, {monitor.data->width, monitor.data->height}};
            }
        }
    }
    if (m_area == Area{}) {
        TraceLine(LUX_TRACE_WARNING, "There is no monitor %lld; the capture shows the whole desktop",
                  static_cast<long long>(m_monitor));
    }
    return {0, 0, m_display->RootSize()};
}

bool X11Screen::Request() {
    std::shared_ptr<Block> block = m_pool->Take(Surface::Bytes(LUX_SURFACE_BGRA, m_area.size));
    if (!block) {
        TraceLine(LUX_TRACE_ERROR, "There is no memory for a picture of %dx%d", m_area.size.width,
                  m_area.size.height);
        ++m_failures;
        return false;
    }
    // What is painted from here on is reported again, so that nothing is lost between the two requests.
    m_changed = false;
    m_display->AwaitDamage();
    const auto cookie = xcb_shm_get_image(
        m_display->Connection(), m_display->Root(), m_area.x, m_area.y,
        static_cast<uint16_t>(m_area.size.width), static_cast<uint16_t>(m_area.size.height), ~0u,
        XCB_IMAGE_FORMAT_Z_PIXMAP, static_cast<SharedBlock*>(block.get())->Segment(), 0);
    m_picture = Picture{cookie.sequence, std::move(block), m_area};
    return true;
}

Ref<Surface> X11Screen::Finish() {
    void* answer = nullptr;
    const X11Display::Answer state = m_display->Await(m_picture->request, &answer);
    if (state == X11Display::Answer::Pending) {
        return {};
    }
    const UniqueReply<void> reply(answer);
    Picture picture = std::move(*m_picture);
    m_picture.reset();
    if (state == X11Display::Answer::Failed) {
        m_changed = true;
        m_resized = true;
        if (++m_failures == kMostFailures) {
            TraceLine(LUX_TRACE_ERROR, "The X server refuses to be captured");
        }
        return {};
    }
    m_failures = 0;
    return Ref<Surface>::Adopt(new Surface(LUX_SURFACE_BGRA, picture.area.size, std::move(picture.block)));
}

std::unique_ptr<ScreenSource> OpenDesktopScreen(int64_t monitor) {
    auto display = X11Display::Open();
    return display ? std::make_unique<X11Screen>(std::move(display), monitor) : nullptr;
}

}  // namespace luxrt
