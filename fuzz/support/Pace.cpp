#include "fuzz/support/Pace.h"

#include <sched.h>

#include <algorithm>

using namespace std::chrono_literals;

namespace fuzz {

namespace {

// Of real time.
constexpr auto kMoment = 50us, kTick = 100us;
constexpr auto kPatience = 1ms;
// Of the PC's clock.
constexpr std::chrono::milliseconds kStep = 250ms, kLongestStep = 8s;
constexpr int kTurns = 8;  // for the others on one core, while one of them polls

winhost::Clock& Clock() {
    return winhost::Clock::Instance();
}

bool HasOneCore() {
    cpu_set_t cores;
    return sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) == 1;
}

void Wait(sem_t& semaphore) {
    while (sem_wait(&semaphore) != 0) {
    }
}

}  // namespace

Pace::Pace() : m_onOneCore(HasOneCore()) {
    sem_init(&m_wish, 0, 0);
    sem_init(&m_idle, 0, 0);
    if (m_onOneCore) m_idler = std::thread([this] { Idle(); });
    m_ticker = std::thread([this] { Tick(); });
}

void Pace::Patiently(const std::function<void()>& call) {
    m_calling = true;
    m_calling.notify_one();
    call();
    m_calling = false;
}

void Pace::Pass(std::chrono::milliseconds time) {
    Clock().Advance(time);
    GiveWay();
}

void Pace::Settle() {
    for (int round = 0; round < 3; ++round) {
        GiveWay();
        WakeNext(300ms);
    }
}

void Pace::WakeNext(winhost::Clock::Duration most) {
    const winhost::Clock::Deadline next = Clock().NextDeadline();
    if (next != winhost::Clock::kNever) Clock().Advance(std::min(next - Clock().Steady(), most));
}

void Pace::GiveWay(int earlier) {
    if (m_onOneCore && m_polling) {
        // Each of these lets the others have a turn.
        for (int turn = 0; turn < kTurns; ++turn)
            std::this_thread::yield();
    } else if (m_onOneCore) {
        sem_post(&m_wish);
        Wait(m_idle);
    } else if (earlier < kShortMoments) {
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(kMoment);
    }
}

// The longer a call takes, the faster time passes, where it is unknown whether the others have come to rest.
void Pace::Tick() {
    for (;;) {
        m_calling.wait(false);
        for (auto step = kStep; m_calling; step = std::min(2 * step, kLongestStep)) {
            if (!Clock().AwaitSleepers(1, kPatience) || !m_calling) continue;
            if (m_onOneCore) {
                GiveWay();
            } else {
                std::this_thread::sleep_for(kTick);
            }
            if (m_calling) WakeNext(m_onOneCore ? winhost::Clock::kNever : step);
        }
    }
}

// This thread has its turn when no other has anything to do, which on one core means that all of them wait.
void Pace::Idle() {
    const sched_param none{};
    sched_setscheduler(0, SCHED_IDLE, &none);
    for (;;) {
        Wait(m_wish);
        sem_post(&m_idle);
    }
}

}  // namespace fuzz
