// Mutexes that know their owner, and are abandoned when it ends without releasing them.
#include <pthread.h>

#include <exception>
#include <utility>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/core/WaitableObject.h"

namespace winhost {

namespace {

class Mutex final : public WaitableObject, public std::enable_shared_from_this<Mutex> {
  public:
    // False when the calling thread is not the owner.
    bool Release();

  private:
    Taken TryTake() override;
    void Disown();
    static void AbandonAll(void* first);
    static pthread_key_t OwnedByThread();

    DWORD m_owner = 0;
    unsigned m_depth = 0;
    bool m_abandoned = false;
    // While it is owned the mutex keeps itself alive and stands in its owner's list, which only the owner
    // walks.
    std::shared_ptr<Mutex> m_self;
    Mutex* m_nextOwned = nullptr;
};

// A thread-specific value and no thread_local: it serves also the destructors that run at the end of the
// process, when the main thread's thread_locals are gone.
pthread_key_t Mutex::OwnedByThread() {
    static const pthread_key_t key = [] {
        pthread_key_t created;
        if (pthread_key_create(&created, AbandonAll) != 0) std::terminate();
        return created;
    }();
    return key;
}

Mutex::Taken Mutex::TryTake() {
    const DWORD thread = GetCurrentThreadId();
    if (m_depth != 0) {
        if (m_owner != thread) return Taken::No;
        ++m_depth;
        return Taken::Yes;
    }
    m_owner = thread;
    m_depth = 1;
    m_self = shared_from_this();
    m_nextOwned = static_cast<Mutex*>(pthread_getspecific(OwnedByThread()));
    pthread_setspecific(OwnedByThread(), this);
    return std::exchange(m_abandoned, false) ? Taken::Abandoned : Taken::Yes;
}

bool Mutex::Release() {
    {
        std::lock_guard lock(m_mutex);
        if (m_depth == 0 || m_owner != GetCurrentThreadId()) return false;
        if (--m_depth != 0) return true;
        Disown();
    }
    m_signalled.notify_one();
    return true;
}

void Mutex::Disown() {
    auto* first = static_cast<Mutex*>(pthread_getspecific(OwnedByThread()));
    if (first == this) {
        pthread_setspecific(OwnedByThread(), m_nextOwned);
    } else {
        while (first->m_nextOwned != this)
            first = first->m_nextOwned;
        first->m_nextOwned = m_nextOwned;
    }
    m_self.reset();
}

void Mutex::AbandonAll(void* first) {
    for (auto* mutex = static_cast<Mutex*>(first); mutex;) {
        std::shared_ptr<Mutex> self;
        {
            std::lock_guard lock(mutex->m_mutex);
            mutex->m_depth = 0;
            mutex->m_abandoned = true;
            self = std::move(mutex->m_self);
            mutex = mutex->m_nextOwned;
        }
        self->m_signalled.notify_one();
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
    if (!handle && initialOwner) mutex->Release();
    SetLastError(handle ? ERROR_SUCCESS : ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL ReleaseMutex(HANDLE handle) {
    WINHOST_GATE("ReleaseMutex", FALSE);
    const auto mutex = HandleTable::Instance().Find<Mutex>(handle);
    if (!mutex || !mutex->Release()) return Fail(mutex ? ERROR_NOT_OWNER : ERROR_INVALID_HANDLE);
    return TRUE;
}
