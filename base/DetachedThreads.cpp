#include "base/DetachedThreads.h"

#include <cstddef>
#include <mutex>
#include <thread>

#include "base/Handles.h"

namespace {
constexpr DWORD kPoll = 10;  // milliseconds
}

struct DetachedThreads::State {
    std::mutex mutex;
    size_t running = 0;
    bool ending = false;
    UniqueHandle allGone{CreateEventA(nullptr, TRUE, TRUE, nullptr)};

    bool AllGone() {
        std::lock_guard lock(mutex);
        return running == 0;
    }

    bool Enter() {
        std::lock_guard lock(mutex);
        if (ending) return false;
        if (running++ == 0) ResetEvent(allGone.Get());
        return true;
    }

    void Leave() {
        std::lock_guard lock(mutex);
        if (--running == 0) SetEvent(allGone.Get());
    }
};

DetachedThreads::DetachedThreads() : m_state(std::make_shared<State>()) {}

DetachedThreads::~DetachedThreads() {
    AwaitEnd(kPatience);
}

bool DetachedThreads::Start(std::function<void()> body) {
    const std::unique_ptr<std::thread> thread = StartOwned(std::move(body));
    if (thread) thread->detach();
    return thread != nullptr;
}

std::unique_ptr<std::thread> DetachedThreads::StartOwned(std::function<void()> body) {
    if (!m_state->Enter()) return nullptr;
    try {
        return std::make_unique<std::thread>([state = m_state, body = std::move(body)] {
            body();
            state->Leave();
        });
    } catch (...) {
        m_state->Leave();
        throw;
    }
}

void DetachedThreads::ForgetTerminated() {
    m_state->Leave();
}

bool DetachedThreads::AwaitEnd(DWORD milliseconds) {
    {
        std::lock_guard lock(m_state->mutex);
        m_state->ending = true;
    }
    if (m_state->AllGone()) return true;
    if (m_state->allGone) return WaitForSingleObject(m_state->allGone.Get(), milliseconds) == WAIT_OBJECT_0;
    // The event could not be created.
    for (DWORD waited = 0; waited < milliseconds; waited += kPoll) {
        if (m_state->AllGone()) return true;
        Sleep(kPoll);
    }
    return m_state->AllGone();
}
