// Restores the link to the firmware: after the start, after a resume, and before each new connection.
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
    Presence::Epoch epoch = 0;
    if (!m_presence.BeginUpdate(epoch)) return;
    bool started = false;
    try {
        started = StartUpdateIfDue(force, epoch);
    } catch (...) {
        // Otherwise every later wake would be dropped because of an update that never runs.
        m_presence.EndUpdate(epoch);
        throw;
    }
    if (!started) m_presence.EndUpdate(epoch);
}

// Returns true when an update has been started, which then ends the claim of the flag.
bool ZELService::StartUpdateIfDue(bool force, Presence::Epoch epoch) {
    uint8_t status = kMpmNoAnswer;
    m_mailBoxDriverInterface.GetMPMStatus(&status);
    // A resume always updates.
    const bool due = force || IsUpdateDue(status);

    // In safe boot the service always reports its state, and nothing else.
    const uint32_t bootMode = m_bootMode;
    if (bootMode == kSafeBoot || bootMode == kSafeBootWithNetworking) {
        ReportSafeBoot(epoch);
        return false;
    }
    // "Down" stays the last state that a stopping service reports.
    if (!due || m_bServiceStopping) return false;
    return m_detachedThreads.Start([this, epoch] {
        UpdatePlatformInfoToMPM(epoch);
        m_presence.EndUpdate(epoch);
    });
}

void ZELService::ReportSafeBoot(Presence::Epoch epoch) {
    const bool isUp = m_presence.ReportUp(epoch, [this, epoch] {
        UpdateManageabilityStatus();
        // A farewell may have ended the query.
        if (!m_presence.IsCurrent(epoch)) return;
        SetZELServiceState(m_bootMode == kSafeBoot ? kServiceUpInSafeBoot
                                                   : kServiceUpInSafeBootWithNetworking);
    });
    if (isUp) m_statusFile.UpdateStatusFile();
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
