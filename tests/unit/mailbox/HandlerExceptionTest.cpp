// A handler that throws because it cannot start its thread.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "tests/support/ServiceFixture.h"
#include "winhost/io/MailboxDevice.h"

namespace {

std::atomic<bool> g_noThreads{false};

class HandlerException : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
        m_thread = std::thread([this] { ReadFromMailBoxDriverThread(service.get()); });
        AwaitLog("Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread");
    }
    void TearDown() override {
        g_noThreads = false;
        AllowError("GetQueuedCompletionStatus failed with error: 995");
        service->m_bServiceStopping = 1;
        service->m_mailboxReadLoop.Cancel();
        m_thread.join();
        ServiceFixture::TearDown();
    }

    std::thread m_thread;
};

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) {
    if (g_noThreads) return EAGAIN;
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, body, argument);
}

TEST_F(HandlerException, CostsTheMessageAndOneReadAndTheLoopGoesOn) {
    ExpectError(", exception error: Resource temporarily unavailable");
    g_noThreads = true;
    firmware.Send(MPM_ZEL_CMD_S0i3_RESUME);
    AwaitLog("Last error: ");
    g_noThreads = false;
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 9u);

    // The failed wake does not stand in the way of the next.
    firmware.Send(MPM_ZEL_CMD_S0i3_RESUME);
    EXPECT_TRUE(firmware.AwaitRequest("WriteIPCompleteInformation"));
    AwaitLog("ReadFile returned successfully");
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 9u);
}
