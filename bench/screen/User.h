// A user at the PC's desktop, on the X display that DISPLAY names: a page of text that covers the screen.
#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <string>

class User {
  public:
    enum class Act {
        Type,     // a letter with each step
        Scroll,   // one line with each step
        Replace,  // types, and turns to another page with every 15th step
    };

    // Throws std::runtime_error when there is no display.
    User();

    // Shows a new page. The same seed gives the same pictures.
    void Begin(Act act, uint32_t seed);
    // Makes one change. The X server has painted it when this returns.
    void Step();

  private:
    uint32_t Chance();
    std::string Words(int length);
    void DrawText(int line, int column, const std::string& text);
    void DrawPage();
    void Type();
    void Scroll();
    void Finish();
    xcb_gcontext_t MakeGraphics(uint32_t ink);

    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> m_connection;
    xcb_window_t m_window = 0;
    xcb_font_t m_font = 0;
    xcb_gcontext_t m_ink = 0, m_heading = 0;
    int m_width = 0, m_height = 0;
    Act m_act = Act::Type;
    uint32_t m_chance = 1;
    int m_steps = 0;
    int m_line = 0, m_column = 0;  // of the caret
};
