// Threads with a handle that can be waited for, and their end.
#include "winhost/kernel/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <exception>
#include <future>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/core/Singleton.h"
#include "winhost/io/MailboxDevice.h"
#include "winhost/kernel/ThreadEnd.h"

namespace winhost {
namespace {

struct Threads {
    std::mutex mutex;
    std::map<DWORD, std::shared_ptr<Thread>> byId;
};

// What calls are of that a thread makes while it ends.
CallingThread& NoThread() {
    return Singleton<CallingThread>();
}

// Held by a thread as its specific data, and destroyed with it.
struct Registration {
    DWORD id;
    std::shared_ptr<Thread> thread;
    bool isLast = false;
};

pthread_key_t RegistrationOfThread() {
    static const pthread_key_t key = [] {
        pthread_key_t created;
        // In the first round the mutexes of the thread may still be owned.
        const auto end = [](void* data) {
            auto* registration = static_cast<Registration*>(data);
            t_calls.thread = &NoThread();
            if (!std::exchange(registration->isLast, true)) {
                pthread_setspecific(RegistrationOfThread(), registration);
                return;
            }
            {
                std::lock_guard lock(Singleton<Threads>().mutex);
                Singleton<Threads>().byId.erase(registration->id);
            }
            registration->thread->End();
            delete registration;
        };
        if (pthread_key_create(&created, end) != 0) std::terminate();
        return created;
    }();
    return key;
}

// Makes it the calling thread's own.
void Adopt(const std::shared_ptr<Thread>& thread) {
    t_calls.thread = thread.get();
    const DWORD id = static_cast<DWORD>(gettid());
    {
        std::lock_guard lock(Singleton<Threads>().mutex);
        Singleton<Threads>().byId[id] = thread;
    }
    pthread_setspecific(RegistrationOfThread(), new Registration{id, thread});
}

std::shared_ptr<Thread> FindThread(DWORD id) {
    std::lock_guard lock(Singleton<Threads>().mutex);
    const auto found = Singleton<Threads>().byId.find(id);
    return found == Singleton<Threads>().byId.end() ? nullptr : found->second;
}

}  // namespace

void Thread::End() {
    {
        std::lock_guard lock(m_mutex);
        m_ended = true;
    }
    m_signalled.notify_all();
}

DWORD ThreadHandle::Wait(Clock::Deadline deadline) {
    if (!Allows(SYNCHRONIZE)) return Fail(ERROR_ACCESS_DENIED, WAIT_FAILED);
    return m_thread->Wait(deadline);
}

void CallScope::AddThread() {
    Adopt(std::make_shared<Thread>());
}

// The requests are withdrawn while the memory that they fill is still there.
void CallScope::EndThread() {
    MailboxDevice::Instance().CancelRequestsOf(*t_calls.thread);
    t_calls.thread = &NoThread();
    EndWithoutUnwinding();
}

}  // namespace winhost

using winhost::Fail;
using winhost::HandleTable;
using winhost::Thread;
using winhost::ThreadHandle;

namespace {

constexpr DWORD kGenericRights = GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL;

HANDLE AddHandle(std::shared_ptr<Thread> thread, DWORD access) {
    return winhost::AddHandle(std::make_shared<ThreadHandle>(std::move(thread), access));
}

}  // namespace

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE routine, LPVOID parameter,
                    DWORD flags, LPDWORD threadId) {
    WINHOST_GATE("CreateThread", nullptr);
    if (!routine || flags != 0) return Fail(routine ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER, nullptr);
    const auto thread = std::make_shared<Thread>();
    const HANDLE handle = AddHandle(thread, THREAD_TERMINATE | SYNCHRONIZE);
    if (!handle) return nullptr;
    std::promise<DWORD> id;
    std::future<DWORD> started = id.get_future();
    try {
        std::thread([thread, routine, parameter, id = std::move(id)]() mutable {
            winhost::Adopt(thread);
            id.set_value(GetCurrentThreadId());
            routine(parameter);
        }).detach();
    } catch (const std::system_error&) {
        HandleTable::Instance().Close<ThreadHandle>(handle);
        return Fail(ERROR_NO_SYSTEM_RESOURCES, nullptr);
    }
    const DWORD threadsId = started.get();
    if (threadId) *threadId = threadsId;
    return handle;
}

HANDLE OpenThread(DWORD access, BOOL inheritHandle, DWORD threadId) {
    WINHOST_GATE("OpenThread", nullptr);
    if (inheritHandle || access & kGenericRights) return Fail(ERROR_NOT_SUPPORTED, nullptr);
    auto thread = winhost::FindThread(threadId);
    return thread ? AddHandle(std::move(thread), access) : Fail(ERROR_INVALID_PARAMETER, nullptr);
}

BOOL TerminateThread(HANDLE handle, DWORD) {
    WINHOST_GATE("TerminateThread", FALSE);
    const auto thread = HandleTable::Instance().Find<ThreadHandle>(handle);
    if (!thread) return Fail(ERROR_INVALID_HANDLE);
    if (!thread->Allows(THREAD_TERMINATE)) return Fail(ERROR_ACCESS_DENIED);
    thread->Named().Terminate();
    return TRUE;
}
