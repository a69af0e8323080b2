// luxcapture.exe NAME MONITOR: captures the screen for the software media runtime, which starts it on the
// user's desktop. NAME is that of the shared memory. Each request of the runtime is answered with one
// picture.
#include <windows.h>

#include <cstdlib>
#include <string>

#include "runtime/software/SharedPicture.h"
#include "runtime/software/luxcapture/GdiScreen.h"
#include "runtime/software/windows/Handle.h"
#include "runtime/software/windows/HelperNames.h"

namespace {

using namespace luxrt;

constexpr int kUsage = 2;
constexpr int kNoMemory = 3;
// A runtime that has asked for nothing in this time has forgotten its program.
constexpr DWORD kForgottenMs = 60'000;

// Pixels of the screen, not those that Windows shows to programs that do not know of scaling.
void SeeRealPixels() {
    using SetContext = BOOL(WINAPI*)(HANDLE);
    const HMODULE user32 = GetModuleHandleW(L"user32.dll");
    const auto setContext = reinterpret_cast<SetContext>(
        reinterpret_cast<void*>(GetProcAddress(user32, "SetProcessDpiAwarenessContext")));
    // Per monitor, version 2. The call is missing before Windows 10.
    if (!setContext || !setContext(reinterpret_cast<HANDLE>(static_cast<INT_PTR>(-4)))) {
        SetProcessDPIAware();
    }
}

void Answer(GdiScreen& screen, SharedPictureWriter& picture, uint32_t request) {
    if (!screen.FollowInputDesktop()) {
        picture.Answer(request, ScreenState::Blocked, {});
        return;
    }
    const lux::LUXSize size = screen.Measure();
    if (!IsPictureSize(size)) {
        picture.Answer(request, ScreenState::Blocked, {});
    } else if (Surface::Bytes(lux::LUX_SURFACE_BGRA, size) > picture.Capacity()) {
        picture.Answer(request, ScreenState::TooLarge, size);
    } else if (const uint8_t* const pixels = screen.Capture()) {
        const bool changed = picture.Store(pixels, size);
        picture.Answer(request, changed ? ScreenState::Changed : ScreenState::Unchanged, size);
    } else {
        picture.Answer(request, ScreenState::Blocked, {});
    }
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
    if (count != 3) {
        return kUsage;
    }
    const std::wstring name = arguments[1];
    const UniqueHandle requested(OpenEventW(SYNCHRONIZE, FALSE, (name + kRequestedSuffix).c_str()));
    const UniqueHandle answered(OpenEventW(EVENT_MODIFY_STATE, FALSE, (name + kAnsweredSuffix).c_str()));
    const UniqueHandle memory(OpenFileMappingW(FILE_MAP_WRITE, FALSE, name.c_str()));
    const UniqueView view(memory ? MapViewOfFile(memory.get(), FILE_MAP_WRITE, 0, 0, 0) : nullptr);
    if (!requested || !answered || !view) {
        return kNoMemory;
    }
    SeeRealPixels();
    GdiScreen screen(std::wcstoll(arguments[2], nullptr, 10));
    SharedPictureWriter picture(view.get());
    while (WaitForSingleObject(requested.get(), kForgottenMs) == WAIT_OBJECT_0) {
        Answer(screen, picture, picture.Request());
        SetEvent(answered.get());
    }
    return 0;
}
