// Restores the link to the firmware: after the start, after a resume, and before each new connection.
#include <system_error>

#include "base/Log.h"
#include "service/ZELService.h"

namespace {

constexpr uint8_t kMpmNoAnswer = 0;
constexpr uint8_t kMpmDown = 2;
constexpr uint32_t kSafeBoot = 1;
constexpr uint32_t kSafeBootWithNetworking = 2;
constexpr int kWaitRounds = 30;
constexpr DWORD kWaitRoundMilliseconds = 100;

bool IsUpdateDue(uint8_t status) {
    if (status == kMpmNoAnswer) {
        LogError("%s: MPM Status return failed, closing the connection and do complete cleanup",
                 "WakeAndUpdateMPM");
        return false;
    }
    if (status == kMpmDown) {
        LogInfo("MPM is down pass nonDASH commands");
        return true;
    }
    LogInfo("Skipping platform updates to MPM");
    return false;
}

}  // namespace

void ZELService::WakeAndUpdateMPM(bool force) {
    uint8_t idle = 0;
    if (!m_bWakeUpdateInProgress.compare_exchange_strong(idle, 1)) return;
    uint8_t status = kMpmNoAnswer;
    m_mailBoxDriverInterface.GetMPMStatus(&status);
    // A resume always updates.
    bool due = force || IsUpdateDue(status);

    // In safe boot the service always reports its state, and nothing else.
    const uint32_t bootMode = m_bootMode;
    if (bootMode == kSafeBoot || bootMode == kSafeBootWithNetworking) {
        m_mailBoxDriverInterface.m_bServiceUp.exchange(1);
        UpdateManageabilityStatus();
        SetZELServiceState(bootMode == kSafeBoot ? kServiceUpInSafeBoot : kServiceUpInSafeBootWithNetworking);
        m_statusFile.UpdateStatusFile();
        due = false;
    }
    if (!due) {
        m_bWakeUpdateInProgress = 0;
        return;
    }
    const auto update = [this] {
        UpdatePlatformInfoToMPM();
        m_bWakeUpdateInProgress.exchange(0);
    };
    try {
        // "Down" stays the last state that a stopping service reports.
        if (m_bServiceStopping || !m_detachedThreads.Start(update)) m_bWakeUpdateInProgress = 0;
    } catch (const std::system_error&) {
        // Otherwise every later wake would be dropped because of an update that never runs.
        m_bWakeUpdateInProgress = 0;
        throw;
    }
}

void ZELService::WakeAndUpdateMPMAndWait(bool force) {
    WakeAndUpdateMPM(force);
    for (int round = 0; m_bWakeUpdateInProgress && round < kWaitRounds; ++round)
        if (!SleepUnlessStopping(kWaitRoundMilliseconds)) break;
    // The flag is cleared even while the update still runs; the next wake may then start a second update.
    m_bWakeUpdateInProgress.exchange(0);
}

void ZELService::SetZELServiceState(uint32_t state) {
    LogInfo("Write ZEL Service status to MPM");
    m_mailBoxDriverInterface.WriteZELStatus(state);
    switch (state) {
        case kServiceUp:
            LogInfo("ZEL Service UP");
            break;
        case kServiceDown:
            LogInfo("ZEL Service DOWN");
            break;
        case kServiceUpInSafeBoot:
            LogInfo("ZEL Service Safeboot UP");
            break;
        default:
            LogInfo("ZEL Service State change asked: %d", state);
    }
}
