#include "runtime/software/windows/HelperScreen.h"

#include <utility>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

constexpr DWORD kNoSession = 0xffffffff;

}  // namespace

HelperScreen::HelperScreen(int64_t monitor, std::unique_ptr<CaptureHelper> helper, DWORD session)
    : m_monitor(monitor),
      m_helper(std::move(helper)),
      m_session(session),
      m_started(GetTickCount64()),
      m_sessionChecked(m_started) {}

void HelperScreen::FollowSession(ULONGLONG now) {
    if (now - m_sessionChecked < kSessionCheck) {
        return;
    }
    m_sessionChecked = now;
    const DWORD session = DesktopProgram::ConsoleSession();
    // Between two users there is none for a moment.
    if (session != kNoSession && session != m_session) {
        m_session = session;
        m_rights = Rights::User;
        Restart(now);
    }
}

// Leaves no program when none can be started.
void HelperScreen::Restart(ULONGLONG now) {
    m_started = now;
    m_waiting = false;
    m_ready = {};
    m_helper.reset();
    m_helper = CaptureHelper::Start(m_monitor, m_capacity, m_session, m_rights);
}

bool HelperScreen::Changed() {
    if (m_ready != LUXSize{}) {
        return true;
    }
    const ULONGLONG now = GetTickCount64();
    FollowSession(now);
    if (!m_helper) {
        return false;
    }
    const bool hangs = m_waiting && now - m_requested > kHangs;
    if ((hangs || !m_helper->Running()) && now - m_started >= kRestart) {
        TraceLine(LUX_TRACE_WARNING,
                  hangs ? "The capture program does not answer" : "The capture program has ended");
        Restart(now);
        return false;
    }
    if (!m_waiting) {
        if (now - m_requested < kLookAgain) {
            return false;
        }
        m_helper->Request();
        m_requested = now;
        m_waiting = true;
    }
    return m_helper->AwaitAnswer() && ReadAnswer(now);
}

bool HelperScreen::ReadAnswer(ULONGLONG now) {
    m_waiting = false;
    const SharedPicture::Answer answer = m_helper->Picture().Read();
    switch (answer.state) {
        case ScreenState::Unchanged:
            break;
        case ScreenState::Changed:
            m_ready = answer.size;
            return true;
        case ScreenState::TooLarge:
            if (Surface::Bytes(LUX_SURFACE_BGRA, answer.size) <= kMostCapacity &&
                now - m_started >= kRestart) {
                m_capacity = Surface::Bytes(LUX_SURFACE_BGRA, answer.size);
                Restart(now);
            }
            break;
        case ScreenState::Blocked:
            // The user's program cannot read the lock screen; one of this process cannot read it only when
            // the user has another desktop. So the two take turns, once a second.
            if (now - m_started >= kRestart && DesktopProgram::OwnSession() != m_session) {
                m_rights = m_rights == Rights::User ? Rights::Own : Rights::User;
                Restart(now);
            }
            break;
    }
    return false;
}

Ref<Surface> HelperScreen::Take() {
    const LUXSize size = std::exchange(m_ready, LUXSize{});
    Ref<Surface> surface = MakeSurface(*m_pool, LUX_SURFACE_BGRA, size);
    m_helper->Picture().Copy(ViewPlane(*surface.Get(), 0).bytes, size);
    // The next picture is asked for at once when it is due.
    m_requested = 0;
    return surface;
}

std::unique_ptr<ScreenSource> OpenDesktopScreen(int64_t monitor) {
    const DWORD session = DesktopProgram::ConsoleSession();
    if (session == kNoSession) {
        TraceLine(LUX_TRACE_INFO, "No session has the machine's screen");
        return nullptr;
    }
    auto helper = CaptureHelper::Start(monitor, HelperScreen::kCapacity, session, Rights::User);
    return helper ? std::make_unique<HelperScreen>(monitor, std::move(helper), session) : nullptr;
}

}  // namespace luxrt
