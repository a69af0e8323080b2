#include "runtime/software/x11/X11Display.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

// Whether a pixel of the screen is BGRA in memory.
bool HasBgraPixels(const xcb_setup_t* setup, const xcb_screen_t* screen) {
    if (setup->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST) {
        return false;
    }
    for (auto format = xcb_setup_pixmap_formats_iterator(setup); format.rem; xcb_format_next(&format)) {
        if (format.data->depth == screen->root_depth && format.data->bits_per_pixel != 32) {
            return false;
        }
    }
    for (auto depth = xcb_screen_allowed_depths_iterator(screen); depth.rem; xcb_depth_next(&depth)) {
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem; xcb_visualtype_next(&visual)) {
            if (visual.data->visual_id == screen->root_visual) {
                return visual.data->red_mask == 0xff0000 && visual.data->green_mask == 0xff00 &&
                       visual.data->blue_mask == 0xff;
            }
        }
    }
    return false;
}

// Returns the extension when the server has it.
const xcb_query_extension_reply_t* FindExtension(xcb_connection_t* connection, xcb_extension_t* extension) {
    const xcb_query_extension_reply_t* const reply = xcb_get_extension_data(connection, extension);
    return reply && reply->present ? reply : nullptr;
}

}  // namespace

std::unique_ptr<Block> SharedBlock::Make(size_t size, const std::shared_ptr<xcb_connection_t>& server) {
    const int file = memfd_create("luxrt", MFD_CLOEXEC);
    if (file < 0) {
        return nullptr;
    }
    void* const bytes = ftruncate(file, static_cast<off_t>(size)) == 0
                            ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
                            : MAP_FAILED;
    if (bytes == MAP_FAILED) {
        close(file);
        return nullptr;
    }
    return std::unique_ptr<Block>(new SharedBlock(static_cast<uint8_t*>(bytes), size, file, server));
}

SharedBlock::SharedBlock(uint8_t* bytes, size_t size, int file,
                         const std::shared_ptr<xcb_connection_t>& server)
    : m_bytes(bytes), m_size(size), m_server(server), m_segment(xcb_generate_id(server.get())) {
    // The file goes to the server with the request and is closed then. A refusal shows in the first picture.
    xcb_shm_attach_fd(server.get(), m_segment, file, 0);
}

SharedBlock::~SharedBlock() {
    if (const auto server = m_server.lock()) {
        xcb_shm_detach(server.get(), m_segment);
        xcb_flush(server.get());
    }
    munmap(m_bytes, m_size);
}

std::unique_ptr<X11Display> X11Display::Open() {
    int screen = 0;
    std::unique_ptr<X11Display> display(new X11Display(xcb_connect(nullptr, &screen), screen));
    if (!display->Alive()) {
        const char* const name = std::getenv("DISPLAY");
        TraceLine(LUX_TRACE_INFO, "No X server at DISPLAY \"%s\"", name ? name : "");
        return nullptr;
    }
    return display->Prepare() ? std::move(display) : nullptr;
}

X11Display::X11Display(xcb_connection_t* connection, int screen) : m_connection(connection, xcb_disconnect) {
    if (!Alive()) {
        return;
    }
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (screens.rem > 1 && screen-- > 0) {
        xcb_screen_next(&screens);
    }
    m_screen = screens.data;
    m_rootSize = {m_screen->width_in_pixels, m_screen->height_in_pixels};
}

// Replies of this connection can still be on their way; they end with it.
X11Display::~X11Display() = default;

bool X11Display::Prepare() {
    xcb_connection_t* const connection = Connection();
    if (!HasBgraPixels(xcb_get_setup(connection), m_screen)) {
        TraceLine(LUX_TRACE_WARNING, "The X server has another pixel format than BGRA");
        return false;
    }
    const UniqueReply<xcb_shm_query_version_reply_t> shm(
        FindExtension(connection, &xcb_shm_id)
            ? xcb_shm_query_version_reply(connection, xcb_shm_query_version(connection), nullptr)
            : nullptr);
    if (!shm || shm->major_version < 1 || (shm->major_version == 1 && shm->minor_version < 2)) {
        TraceLine(LUX_TRACE_WARNING, "The X server does not have MIT-SHM 1.2");
        return false;
    }
    const uint32_t structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection, Root(), XCB_CW_EVENT_MASK, &structure);
    m_damageExtension = FindExtension(connection, &xcb_damage_id);
    if (m_damageExtension) {
        const UniqueReply<xcb_damage_query_version_reply_t> version(xcb_damage_query_version_reply(
            connection,
            xcb_damage_query_version(connection, XCB_DAMAGE_MAJOR_VERSION, XCB_DAMAGE_MINOR_VERSION),
            nullptr));
        m_damage = xcb_generate_id(connection);
        xcb_damage_create(connection, m_damage, Root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    } else {
        TraceLine(LUX_TRACE_WARNING, "The X server has no DAMAGE; every picture counts as changed");
    }
    if (const auto* randr = FindExtension(connection, &xcb_randr_id)) {
        const UniqueReply<xcb_randr_query_version_reply_t> version(
            xcb_randr_query_version_reply(connection, xcb_randr_query_version(connection, 1, 5), nullptr));
        if (version && version->major_version == 1 && version->minor_version >= 5) {
            m_randr = randr;
            xcb_randr_select_input(connection, Root(),
                                   XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE);
        }
    }
    return xcb_flush(connection) > 0;
}

X11Display::Events X11Display::ReadEvents() {
    Events events{m_damage == 0, false};
    while (const UniqueReply<xcb_generic_event_t> event{xcb_poll_for_event(Connection())}) {
        const int type = event->response_type & 0x7f;
        if (m_damageExtension && type == m_damageExtension->first_event + XCB_DAMAGE_NOTIFY) {
            events.painted = true;
        } else if (type == XCB_CONFIGURE_NOTIFY) {
            const auto* configure = reinterpret_cast<xcb_configure_notify_event_t*>(event.get());
            if (configure->window == Root()) {
                m_rootSize = {configure->width, configure->height};
                events.resized = true;
            }
        } else if (m_randr && (type == m_randr->first_event + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                               type == m_randr->first_event + XCB_RANDR_NOTIFY)) {
            events.resized = true;
        }
    }
    return events;
}

void X11Display::AwaitDamage() {
    if (m_damage != 0) {
        xcb_damage_subtract(Connection(), m_damage, XCB_NONE, XCB_NONE);
    }
}

X11Display::Answer X11Display::Await(unsigned request, void** reply) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(kPatienceMs);
    xcb_flush(Connection());
    for (;;) {
        xcb_generic_error_t* failure = nullptr;
        if (xcb_poll_for_reply(Connection(), request, reply, &failure) != 0) {
            const UniqueReply<xcb_generic_error_t> error(failure);
            return *reply ? Answer::Arrived : Answer::Failed;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd server{xcb_get_file_descriptor(Connection()), POLLIN, 0};
        if (left <= 0 || poll(&server, 1, static_cast<int>(left)) < 0) {
            return Answer::Pending;
        }
    }
}

}  // namespace luxrt
