// Threads with a handle that can be waited for.
#include "winhost/kernel/Thread.h"

#include <future>
#include <memory>
#include <system_error>
#include <thread>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/core/WaitableObject.h"

namespace winhost {

namespace {

class Thread : public WaitableObject {
  public:
    void End() {
        {
            std::lock_guard lock(m_mutex);
            m_ended = true;
        }
        m_signalled.notify_all();
    }

  private:
    Taken TryTake() override { return m_ended ? Taken::Yes : Taken::No; }

    bool m_ended = false;
};

}  // namespace

bool IsThread(HANDLE handle) {
    return HandleTable::Instance().Find<Thread>(handle) != nullptr;
}

}  // namespace winhost

using winhost::Fail;
using winhost::HandleTable;
using winhost::Thread;

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE routine, LPVOID parameter,
                    DWORD flags, LPDWORD threadId) {
    WINHOST_GATE("CreateThread", nullptr);
    if (!routine || flags != 0) return Fail(routine ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER, nullptr);
    const auto thread = std::make_shared<Thread>();
    const HANDLE handle = HandleTable::Instance().Add(thread);
    if (!handle) return Fail(ERROR_NO_SYSTEM_RESOURCES, nullptr);
    std::promise<DWORD> id;
    std::future<DWORD> started = id.get_future();
    try {
        std::thread([thread, routine, parameter, id = std::move(id)]() mutable {
            id.set_value(GetCurrentThreadId());
            routine(parameter);
            thread->End();
        }).detach();
    } catch (const std::system_error&) {
        HandleTable::Instance().Close<Thread>(handle);
        return Fail(ERROR_NO_SYSTEM_RESOURCES, nullptr);
    }
    if (threadId) *threadId = started.get();
    return handle;
}
