// The screen of the machine's user, as a program on that desktop captures it.
#pragma once

#include <memory>

#include "runtime/software/ScreenSource.h"
#include "runtime/software/windows/CaptureHelper.h"

namespace luxrt {

// Follows the session that is shown on the machine's screen. A program that dies or hangs is replaced. A
// locked screen is read with the rights of this process, which suffice when it is a service.
class HelperScreen : public ScreenSource {
  public:
    HelperScreen(int64_t monitor, std::unique_ptr<CaptureHelper> helper, DWORD session);

    bool Changed() override;
    lux::Ref<Surface> Take() override;
    bool Alive() override { return m_helper != nullptr; }

    // Enough for 3840 by 2160 pixels, and what a larger screen may ask for.
    static constexpr size_t kCapacity = size_t{3840} * 2160 * 4;
    static constexpr size_t kMostCapacity = size_t{7680} * 4320 * 4;

  private:
    // In milliseconds, as GetTickCount64 counts.
    static constexpr ULONGLONG kLookAgain = 15;
    static constexpr ULONGLONG kHangs = 5000;
    static constexpr ULONGLONG kSessionCheck = 1000;
    static constexpr ULONGLONG kRestart = 1000;

    void FollowSession(ULONGLONG now);
    void Restart(ULONGLONG now);
    bool ReadAnswer(ULONGLONG now);

    int64_t m_monitor;
    std::unique_ptr<CaptureHelper> m_helper;
    DWORD m_session;
    Rights m_rights = Rights::User;
    size_t m_capacity = kCapacity;
    ULONGLONG m_started;
    ULONGLONG m_sessionChecked;
    // Of the request that is on its way, or of the last one.
    ULONGLONG m_requested = 0;
    bool m_waiting = false;
    // The size of the picture that can be taken, or zero.
    lux::LUXSize m_ready{};
    std::shared_ptr<BlockPool> m_pool = std::make_shared<BlockPool>();
};

}  // namespace luxrt
