#include "bench/screen/User.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace {

// Of the X server's font "fixed".
constexpr int kLetterWidth = 6, kLineHeight = 13, kAscent = 11;
constexpr int kLongestText = 255;  // letters of one request
constexpr int kStepsOfPage = 15;
constexpr uint32_t kPaper = 0xFFFFFF, kInk = 0x202020, kHeadingInk = 0x1040A0;

}  // namespace

User::User() : m_connection(xcb_connect(nullptr, nullptr), xcb_disconnect) {
    xcb_connection_t* const connection = m_connection.get();
    if (xcb_connection_has_error(connection)) throw std::runtime_error("there is no X display");
    const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    m_width = screen->width_in_pixels;
    m_height = screen->height_in_pixels;
    m_window = xcb_generate_id(connection);
    const uint32_t values[] = {kPaper, 1};
    xcb_create_window(connection, screen->root_depth, m_window, screen->root, 0, 0,
                      static_cast<uint16_t>(m_width), static_cast<uint16_t>(m_height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    m_font = xcb_generate_id(connection);
    const xcb_void_cookie_t opened = xcb_open_font_checked(connection, m_font, 5, "fixed");
    if (xcb_generic_error_t* const error = xcb_request_check(connection, opened)) {
        free(error);
        throw std::runtime_error("the X server has no font \"fixed\"");
    }
    m_ink = MakeGraphics(kInk);
    m_heading = MakeGraphics(kHeadingInk);
    xcb_map_window(connection, m_window);
    Finish();
}

xcb_gcontext_t User::MakeGraphics(uint32_t ink) {
    const xcb_gcontext_t graphics = xcb_generate_id(m_connection.get());
    const uint32_t values[] = {ink, kPaper, m_font, 0};
    xcb_create_gc(m_connection.get(), graphics, m_window,
                  XCB_GC_FOREGROUND | XCB_GC_BACKGROUND | XCB_GC_FONT | XCB_GC_GRAPHICS_EXPOSURES, values);
    return graphics;
}

void User::Begin(Act act, uint32_t seed) {
    m_act = act;
    m_chance = seed * 2 + 1;
    m_steps = 0;
    // Another user's window may cover it.
    const uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(m_connection.get(), m_window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    DrawPage();
    Finish();
}

void User::Step() {
    ++m_steps;
    if (m_act == Act::Scroll) {
        Scroll();
    } else if (m_act == Act::Replace && m_steps % kStepsOfPage == 0) {
        DrawPage();
    } else {
        Type();
    }
    Finish();
}

// A reply comes after all that was asked for before it.
void User::Finish() {
    free(xcb_get_input_focus_reply(m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
}

uint32_t User::Chance() {
    m_chance = m_chance * 1664525 + 1013904223;
    return m_chance >> 8;
}

std::string User::Words(int length) {
    std::string text;
    while (static_cast<int>(text.size()) < length) {
        for (uint32_t left = Chance() % 9 + 1; left > 0; --left)
            text += static_cast<char>('a' + Chance() % 26);
        text += ' ';
    }
    text.resize(static_cast<size_t>(length));
    return text;
}

void User::DrawText(int line, int column, const std::string& text) {
    for (size_t at = 0; at < text.size(); at += kLongestText) {
        const std::string part = text.substr(at, kLongestText);
        xcb_image_text_8(m_connection.get(), static_cast<uint8_t>(part.size()), m_window,
                         line % 10 == 0 ? m_heading : m_ink,
                         static_cast<int16_t>((column + static_cast<int>(at)) * kLetterWidth),
                         static_cast<int16_t>(line * kLineHeight + kAscent), part.c_str());
    }
}

// The upper half is text, and the caret is at the beginning of the lower one.
void User::DrawPage() {
    xcb_clear_area(m_connection.get(), 0, m_window, 0, 0, 0, 0);
    const int lines = m_height / kLineHeight;
    m_line = m_act == Act::Scroll ? lines : lines / 2;
    m_column = 0;
    const auto longest = static_cast<uint32_t>(m_width / kLetterWidth - 1);
    for (int line = 0; line < m_line; ++line)
        DrawText(line, 0, Words(static_cast<int>(Chance() % longest) + 1));
}

void User::Type() {
    DrawText(m_line, m_column, Words(1));
    if (++m_column < m_width / kLetterWidth) return;
    m_column = 0;
    ++m_line;
}

void User::Scroll() {
    const int rest = m_height - kLineHeight;
    xcb_copy_area(m_connection.get(), m_window, m_window, m_ink, 0, kLineHeight, 0, 0,
                  static_cast<uint16_t>(m_width), static_cast<uint16_t>(rest));
    const int last = m_height / kLineHeight - 1;
    xcb_clear_area(m_connection.get(), 0, m_window, 0, static_cast<int16_t>(last * kLineHeight), 0, 0);
    const auto longest = static_cast<uint32_t>(m_width / kLetterWidth - 1);
    DrawText(last, 0, Words(static_cast<int>(Chance() % longest) + 1));
}
