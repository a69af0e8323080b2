#include "runtime/software/luxcapture/GdiScreen.h"

#include <array>

namespace luxrt {

using namespace lux;

namespace {

LUXSize SizeOf(const RECT& area) {
    return {area.right - area.left, area.bottom - area.top};
}

struct MonitorSearch {
    int64_t left;
    std::optional<RECT> found;
};

BOOL CALLBACK CountMonitor(HMONITOR, HDC, RECT* area, LPARAM parameter) {
    auto* const search = reinterpret_cast<MonitorSearch*>(parameter);
    if (search->left-- == 0) {
        search->found = *area;
    }
    return !search->found;
}

RECT WholeDesktop() {
    const LONG left = GetSystemMetrics(SM_XVIRTUALSCREEN);
    const LONG top = GetSystemMetrics(SM_YVIRTUALSCREEN);
    return {left, top, left + GetSystemMetrics(SM_CXVIRTUALSCREEN),
            top + GetSystemMetrics(SM_CYVIRTUALSCREEN)};
}

std::wstring NameOf(HDESK desktop) {
    std::array<wchar_t, 256> name{};
    DWORD size = 0;
    return GetUserObjectInformationW(desktop, UOI_NAME, name.data(), sizeof name - sizeof name.front(), &size)
               ? name.data()
               : L"";
}

}  // namespace

// A thread that is on the input desktop already is not attached to it again: Wine refuses that to a program
// that a service has started.
GdiScreen::GdiScreen(int64_t monitor)
    : m_monitor(monitor), m_desktopName(NameOf(GetThreadDesktop(GetCurrentThreadId()))) {}

GdiScreen::~GdiScreen() {
    Close();
}

void GdiScreen::Close() {
    if (m_memory) {
        DeleteDC(m_memory);
    }
    if (m_bitmap) {
        DeleteObject(m_bitmap);
    }
    if (m_screen) {
        ReleaseDC(nullptr, m_screen);
    }
    m_screen = nullptr;
    m_memory = nullptr;
    m_bitmap = nullptr;
    m_pixels = nullptr;
    m_bitmapSize = {};
}

bool GdiScreen::FollowInputDesktop() {
    HDESK const input =
        OpenInputDesktop(0, FALSE, DESKTOP_READOBJECTS | DESKTOP_WRITEOBJECTS | DESKTOP_CREATEWINDOW);
    if (!input) {
        return false;
    }
    const std::wstring name = NameOf(input);
    if (name == m_desktopName) {
        CloseDesktop(input);
        return true;
    }
    Close();
    if (!SetThreadDesktop(input)) {
        CloseDesktop(input);
        return false;
    }
    if (m_desktop) {
        CloseDesktop(m_desktop);
    }
    m_desktop = input;
    m_desktopName = name;
    return true;
}

LUXSize GdiScreen::Measure() {
    MonitorSearch search{m_monitor, {}};
    EnumDisplayMonitors(nullptr, nullptr, CountMonitor, reinterpret_cast<LPARAM>(&search));
    m_area = search.found ? *search.found : WholeDesktop();
    return SizeOf(m_area);
}

bool GdiScreen::PrepareBitmap() {
    const LUXSize size = SizeOf(m_area);
    if (m_bitmap && m_bitmapSize == size) {
        return true;
    }
    Close();
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = size.width;
    // Rows from the top.
    info.bmiHeader.biHeight = -size.height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    m_screen = GetDC(nullptr);
    m_memory = CreateCompatibleDC(m_screen);
    m_bitmap = CreateDIBSection(m_screen, &info, DIB_RGB_COLORS, &m_pixels, nullptr, 0);
    if (!m_screen || !m_memory || !m_bitmap || !m_pixels) {
        Close();
        return false;
    }
    SelectObject(m_memory, m_bitmap);
    m_bitmapSize = size;
    return true;
}

const uint8_t* GdiScreen::Capture() {
    if (!PrepareBitmap() || !BitBlt(m_memory, 0, 0, m_bitmapSize.width, m_bitmapSize.height, m_screen,
                                    m_area.left, m_area.top, SRCCOPY | CAPTUREBLT)) {
        Close();
        return nullptr;
    }
    GdiFlush();
    return static_cast<const uint8_t*>(m_pixels);
}

}  // namespace luxrt
