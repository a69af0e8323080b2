// A read loop for which there is no memory.
#include <atomic>
#include <cstddef>
#include <new>

#include "tests/support/ServiceFixture.h"
#include "winhost/io/MailboxDevice.h"

namespace {

// Buffers of a read that are still granted; below 0 all are.
std::atomic<int> g_buffersLeft{-1};

using OutOfMemory = ServiceFixture;

}  // namespace

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    if (size == kMailboxBufferSize && g_buffersLeft >= 0 && g_buffersLeft-- == 0) return nullptr;
    try {
        return operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

TEST_F(OutOfMemory, ABufferThatCannotBeHadEndsTheReadLoop) {
    OpenMailbox();
    g_buffersLeft = 3;
    ReadFromMailBoxDriverThread(service.get());
    g_buffersLeft = -1;
    ExpectLogInOrder({"ReadFromMailBoxDriverThread: buffer allocation failed",
                      "ReadFromMailBoxDriverThread: close handle completion port",
                      "ReadFromMailBoxDriverThread: close handle read from MPM Device",
                      "ReadFromMailBoxDriverThread: Exiting Thread Handler"});
    EXPECT_EQ(winhost::MailboxDevice::Instance().OpenHandles(), 1u);
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 0u);
}
