// The picture of one monitor, by GDI.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "lux/Types.h"

namespace luxrt {

class GdiScreen {
  public:
    // `monitor` counts as EnumDisplayMonitors does. When there is no such monitor, it is the whole desktop.
    explicit GdiScreen(int64_t monitor);
    GdiScreen(const GdiScreen&) = delete;
    GdiScreen& operator=(const GdiScreen&) = delete;
    ~GdiScreen();

    // Attaches the thread to the desktop that has the input. Returns false when that may not be read.
    bool FollowInputDesktop();
    // The monitor as it is now; zero by zero when there is none.
    lux::LUXSize Measure();
    // The pixels of that size in BGRA, from the top; null when they cannot be read. Valid until the next
    // call.
    const uint8_t* Capture();

  private:
    bool PrepareBitmap();
    void Close();

    int64_t m_monitor;
    // Null while the thread is on the desktop that it was started on.
    HDESK m_desktop = nullptr;
    std::wstring m_desktopName;
    RECT m_area{};
    HDC m_screen = nullptr;
    HDC m_memory = nullptr;
    HBITMAP m_bitmap = nullptr;
    lux::LUXSize m_bitmapSize{};
    void* m_pixels = nullptr;
};

}  // namespace luxrt
