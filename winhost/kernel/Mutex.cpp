// Mutexes that know their owner, and are abandoned when it ends without releasing them.
#include <pthread.h>

#include <atomic>
#include <exception>
#include <utility>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/core/WaitableObject.h"

namespace winhost {

namespace {

// Each line of a log takes a mutex that is free: neither taking nor releasing that one needs its lock.
class Mutex final : public WaitableObject, public std::enable_shared_from_this<Mutex> {
  public:
    DWORD Wait(Clock::Deadline deadline) override;
    // False when the calling thread is not the owner.
    bool Release();
    void OnClose() override { handle = nullptr; }
    // The mutex that the calling thread has taken last, if this is its handle; else null.
    static Mutex* LastTaken(HANDLE of);

    std::atomic<HANDLE> handle{nullptr};

  private:
    Taken TryTake() override;
    void Disown(Mutex*& place);
    static void AbandonAll(void*);
    static void WatchThread();

    // Of the owning thread, which alone uses the members below; null while the mutex is free.
    std::atomic<const Calls*> m_owner{nullptr};
    std::atomic<unsigned> m_waiting{0};  // threads that have found it taken
    unsigned m_depth = 0;
    bool m_isAbandoned = false;
    // While it is owned the mutex keeps itself alive and stands in its owner's list.
    std::shared_ptr<Mutex> m_self;
    Mutex* m_nextOwned = nullptr;
};

// Without a destructor: it serves also the destructors that run at the end of the process, when the main
// thread's other thread_locals are gone.
constinit thread_local Mutex* t_firstOwned = nullptr;

// AbandonAll is called when the calling thread ends.
void Mutex::WatchThread() {
    static const pthread_key_t key = [] {
        pthread_key_t created;
        if (pthread_key_create(&created, AbandonAll) != 0) std::terminate();
        return created;
    }();
    constinit thread_local bool isWatched = false;
    if (!std::exchange(isWatched, true)) pthread_setspecific(key, &isWatched);
}

Mutex* Mutex::LastTaken(HANDLE of) {
    return of && t_firstOwned && t_firstOwned->handle == of ? t_firstOwned : nullptr;
}

DWORD Mutex::Wait(Clock::Deadline deadline) {
    Taken taken = TryTake();
    if (taken == Taken::No) {
        ++m_waiting;
        const DWORD result = WaitableObject::Wait(deadline);
        --m_waiting;
        return result;
    }
    return taken == Taken::Abandoned ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

Mutex::Taken Mutex::TryTake() {
    const Calls* owner = nullptr;
    if (m_owner.compare_exchange_strong(owner, &t_calls)) {
        WatchThread();
        m_depth = 1;
        m_self = shared_from_this();
        m_nextOwned = std::exchange(t_firstOwned, this);
        return std::exchange(m_isAbandoned, false) ? Taken::Abandoned : Taken::Yes;
    }
    if (owner != &t_calls) return Taken::No;
    ++m_depth;
    return Taken::Yes;
}

bool Mutex::Release() {
    if (m_owner != &t_calls) return false;
    if (--m_depth != 0) return true;
    Mutex** place = &t_firstOwned;
    while (*place != this)
        place = &(*place)->m_nextOwned;
    Disown(*place);
    return true;
}

// A thread that waits has counted itself before it found the mutex taken. It holds the lock until it blocks.
void Mutex::Disown(Mutex*& place) {
    place = m_nextOwned;
    const std::shared_ptr<Mutex> self = std::move(m_self);
    m_owner = nullptr;
    if (m_waiting == 0) return;
    { const std::lock_guard lock(m_mutex); }
    m_signalled.notify_one();
}

void Mutex::AbandonAll(void*) {
    while (t_firstOwned) {
        t_firstOwned->m_depth = 0;
        t_firstOwned->m_isAbandoned = true;
        t_firstOwned->Disown(t_firstOwned);
    }
}

}  // namespace

}  // namespace winhost

using winhost::Fail;
using winhost::HandleTable;
using winhost::Mutex;

HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCSTR name) {
    WINHOST_GATE("CreateMutexA", nullptr);
    if (name) return Fail(ERROR_NOT_SUPPORTED, nullptr);
    const auto mutex = std::make_shared<Mutex>();
    if (initialOwner) mutex->Wait({});
    const HANDLE handle = HandleTable::Instance().Add(mutex);
    mutex->handle = handle;
    if (!handle && initialOwner) mutex->Release();
    SetLastError(handle ? ERROR_SUCCESS : ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL ReleaseMutex(HANDLE handle) {
    WINHOST_GATE("ReleaseMutex", FALSE);
    // Most often it is the last one, and the table need not be asked.
    if (Mutex* last = Mutex::LastTaken(handle)) return last->Release();
    const auto mutex = HandleTable::Instance().Find<Mutex>(handle);
    if (!mutex || !mutex->Release()) return Fail(mutex ? ERROR_NOT_OWNER : ERROR_INVALID_HANDLE);
    return TRUE;
}
