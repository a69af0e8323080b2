#include "firmware/screen/VirtualDevices.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace mpm {

namespace {

constexpr uint32_t kShiftLeft = 0xFFE1, kShiftRight = 0xFFE2;

template <class Reply>
using Owned = std::unique_ptr<Reply, void (*)(void*)>;

template <class Reply>
Owned<Reply> Own(Reply* reply) {
    return {reply, std::free};
}

xcb_screen_t* ScreenOf(xcb_connection_t* connection, int number) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; number > 0 && screens.rem > 1; --number)
        xcb_screen_next(&screens);
    return screens.data;
}

}  // namespace

VirtualDevices::VirtualDevices(const std::string& display) : m_connection(nullptr, xcb_disconnect) {
    if (display.empty()) throw std::runtime_error("Screen.Display names no display");
    int screen = 0;
    m_connection.reset(xcb_connect(display.c_str(), &screen));
    if (xcb_connection_has_error(m_connection.get()))
        throw std::runtime_error("display " + display + " cannot be opened");
    const auto* extension = xcb_get_extension_data(m_connection.get(), &xcb_test_id);
    if (!extension || !extension->present)
        throw std::runtime_error("display " + display + " has no XTEST extension");
    m_screen = ScreenOf(m_connection.get(), screen);
    ReadKeys();
}

VirtualDevices::~VirtualDevices() {
    for (const auto& [keysym, key] : m_down)
        Fake(XCB_KEY_RELEASE, key);
    for (uint8_t button = 0; button < 8; ++button)
        if (m_buttons >> button & 1) Fake(XCB_BUTTON_RELEASE, uint8_t(button + 1));
    const std::vector<uint32_t> none(m_levels);
    for (size_t i = 0; i < std::min(m_assigned, m_spare.size()); ++i)
        xcb_change_keyboard_mapping(m_connection.get(), 1, m_spare[i], uint8_t(m_levels), none.data());
    // The display drops the requests of a connection that has closed, so it has to have worked on them.
    Own(xcb_get_input_focus_reply(m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
}

// Somebody may change the keyboard at any time.
void VirtualDevices::FollowChanges() {
    bool changed = false;
    while (const auto event = Own(xcb_poll_for_event(m_connection.get())))
        changed |= (event->response_type & 0x7F) == XCB_MAPPING_NOTIFY;
    if (changed) ReadKeys();
}

void VirtualDevices::ReadKeys() {
    const xcb_setup_t* setup = xcb_get_setup(m_connection.get());
    m_firstKey = setup->min_keycode;
    const auto count = uint8_t(setup->max_keycode - setup->min_keycode + 1);
    const auto reply = Own(xcb_get_keyboard_mapping_reply(
        m_connection.get(), xcb_get_keyboard_mapping(m_connection.get(), m_firstKey, count), nullptr));
    if (!reply || reply->keysyms_per_keycode == 0)
        throw std::runtime_error("the display does not say what its keys are");
    m_levels = reply->keysyms_per_keycode;
    const xcb_keysym_t* symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
    m_symbols.assign(symbols, symbols + xcb_get_keyboard_mapping_keysyms_length(reply.get()));
    if (!m_spare.empty()) return;
    for (size_t key = 0; (key + 1) * m_levels <= m_symbols.size(); ++key) {
        const auto first = m_symbols.begin() + ptrdiff_t(key * m_levels);
        if (std::all_of(first, first + ptrdiff_t(m_levels), [](uint32_t symbol) { return symbol == 0; }))
            m_spare.push_back(uint8_t(m_firstKey + key));
    }
}

VirtualDevices::Place VirtualDevices::PlaceOf(uint32_t keysym) const {
    for (const size_t level : {size_t(0), size_t(1)})
        for (size_t key = 0; level < m_levels && (key + 1) * m_levels <= m_symbols.size(); ++key) {
            if (SymbolAt(key, level) != keysym) continue;
            const uint32_t other = level == 0 && m_levels > 1 ? SymbolAt(key, 1) : 0;
            // Keys that are no characters (arrows, functions) take the shift key as the viewer holds it.
            const bool character = keysym < 0xFE00 || keysym >= 0x1000000;
            return {uint8_t(m_firstKey + key), level == 1,
                    level == 0 && (!character || other == 0 || other == keysym)};
        }
    return {};
}

VirtualDevices::Place VirtualDevices::Assign(uint32_t keysym) {
    if (m_spare.empty()) return {};
    const uint8_t key = m_spare[m_assigned++ % m_spare.size()];
    std::vector<uint32_t> symbols(m_levels, keysym);
    xcb_change_keyboard_mapping(m_connection.get(), 1, key, uint8_t(m_levels), symbols.data());
    std::copy(symbols.begin(), symbols.end(),
              m_symbols.begin() + ptrdiff_t(size_t(key - m_firstKey) * m_levels));
    return {key, false, true};
}

void VirtualDevices::Key(bool down, uint32_t keysym) {
    const auto held = m_down.find(keysym);
    if (!down) {
        if (held == m_down.end()) return;
        Fake(XCB_KEY_RELEASE, held->second);
        m_down.erase(held);
        return Flush();
    }
    if (held != m_down.end() || keysym == 0) return;
    FollowChanges();
    Place place = PlaceOf(keysym);
    if (place.key == 0) place = Assign(keysym);
    if (place.key == 0) return;
    Press(place.key, place);
    m_down[keysym] = place.key;
    Flush();
}

// A viewer with another layout holds the shift key where this one needs none, and the other way round.
void VirtualDevices::Press(uint8_t key, const Place& place) {
    std::vector<uint8_t> held;
    for (const uint32_t shift : {kShiftLeft, kShiftRight})
        if (const auto found = m_down.find(shift); found != m_down.end()) held.push_back(found->second);
    const uint8_t shift = PlaceOf(kShiftLeft).key;
    const bool release = !held.empty() && !place.shift && !place.either;
    const bool press = held.empty() && place.shift && shift != 0;
    if (release)
        for (const uint8_t each : held)
            Fake(XCB_KEY_RELEASE, each);
    if (press) Fake(XCB_KEY_PRESS, shift);
    Fake(XCB_KEY_PRESS, key);
    if (press) Fake(XCB_KEY_RELEASE, shift);
    if (release)
        for (const uint8_t each : held)
            Fake(XCB_KEY_PRESS, each);
}

void VirtualDevices::Pointer(uint8_t buttons, int x, int y, int width, int height) {
    const auto size = Own(xcb_get_geometry_reply(
        m_connection.get(), xcb_get_geometry(m_connection.get(), m_screen->root), nullptr));
    if (size && width > 0 && height > 0) {
        // The picture may be a scaled one.
        x = x * size->width / width;
        y = y * size->height / height;
    }
    Fake(XCB_MOTION_NOTIFY, 0, x, y);
    for (uint8_t button = 0; button < 8; ++button)
        if ((buttons ^ m_buttons) >> button & 1)
            Fake(buttons >> button & 1 ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, uint8_t(button + 1));
    m_buttons = buttons;
    Flush();
}

void VirtualDevices::Fake(uint8_t type, uint8_t detail, int x, int y) {
    xcb_test_fake_input(m_connection.get(), type, detail, XCB_CURRENT_TIME, m_screen->root, int16_t(x),
                        int16_t(y), 0);
}

void VirtualDevices::Flush() {
    if (xcb_flush(m_connection.get()) <= 0 || xcb_connection_has_error(m_connection.get()))
        throw std::runtime_error("the display is gone");
}

}  // namespace mpm
