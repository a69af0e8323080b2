// Threads that are ended from outside.
#include <winsock2.h>

#include <mutex>
#include <optional>

#include "winhost/tests/EndedThread.h"
#include "winhost/tests/MailboxFixture.h"
#include "winhost/tests/PipeFixture.h"
#include "winhost/tests/WinsockFixture.h"

namespace {

class TerminateThreadTest : public PcFixture {
  protected:
    const HANDLE m_event = NewEvent();
};

TEST_F(TerminateThreadTest, EndsASleep) {
    EndedThread endless([] { Sleep(INFINITE); });
    EXPECT_TRUE(endless.Ends());
    Clock().SetManual(true);
    EndedThread hour([] { Sleep(3'600'000); });
    ASSERT_TRUE(Clock().AwaitSleeper(std::chrono::hours(1)));
    EXPECT_TRUE(hour.Ends());
    EXPECT_EQ(winhost::Clock::kNever, Clock().NextDeadline()) << "the clock forgets it";
    Clock().Advance(std::chrono::hours(2));
}

TEST_F(TerminateThreadTest, EndsAWait) {
    for (const DWORD limit : {INFINITE, DWORD{3'600'000}}) {
        EndedThread thread([&] { WaitForSingleObject(m_event, limit); });
        EXPECT_TRUE(thread.Ends());
    }
    EXPECT_TRUE(SetEvent(m_event)) << "the event goes on as if the thread had never waited";
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(m_event, 0));
}

TEST_F(TerminateThreadTest, OtherThreadsGoOnWaiting) {
    std::promise<DWORD> result;
    std::thread other([&] { result.set_value(WaitForSingleObject(m_event, INFINITE)); });
    EndedThread thread([&] { WaitForSingleObject(m_event, INFINITE); });
    EXPECT_TRUE(thread.Ends());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(m_event, 0));
    SetEvent(m_event);
    other.join();
    EXPECT_EQ(WAIT_OBJECT_0, result.get_future().get());
}

TEST_F(TerminateThreadTest, AThreadThatDoesNotWaitEndsAtItsNextCall) {
    std::atomic<bool> mayCall{false};
    EndedThread thread([&] {
        while (!mayCall)
            std::this_thread::yield();
        SetEvent(m_event);
    });
    EXPECT_TRUE(TerminateThread(thread.Handle(), 3));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(thread.Handle(), 0));
    mayCall = true;
    EXPECT_TRUE(thread.HasEnded());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(m_event, 0)) << "the call did nothing";
}

TEST_F(TerminateThreadTest, WhatItHasLockedStaysLocked) {
    // Never destroyed: it stays locked.
    static std::mutex& locked = *new std::mutex;
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
    EndedThread thread([&] {
        const std::lock_guard lock(locked);
        WaitForSingleObject(mutex, INFINITE);
        Sleep(INFINITE);
    });
    EXPECT_TRUE(thread.Ends());
    EXPECT_FALSE(locked.try_lock());
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex, INFINITE));
    ReleaseMutex(mutex);
    CloseHandle(mutex);
}

TEST_F(TerminateThreadTest, AThreadThatEndsByItselfSignalsItsHandleToo) {
    std::optional<EndedThread> thread(std::in_place, [&] { WaitForSingleObject(m_event, INFINITE); });
    const DWORD id = thread->Id();
    const HANDLE handle = OpenThread(SYNCHRONIZE, FALSE, id);
    ASSERT_NE(nullptr, handle);
    SetEvent(m_event);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(handle, INFINITE));
    CloseHandle(handle);
    thread.reset();
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(OpenThread(SYNCHRONIZE, FALSE, id)));
}

TEST_F(TerminateThreadTest, AHandleAllowsWhatItWasOpenedFor) {
    const HANDLE none = OpenThread(0, FALSE, GetCurrentThreadId());
    ASSERT_NE(nullptr, none);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateThread(none, 0)));
    SetLastError(0);
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(none, 0));
    EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
    CloseHandle(none);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(TerminateThread(none, 0)));
    SetLastError(0);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(TerminateThread(m_event, 0)));
}

TEST_F(TerminateThreadTest, WhatCannotBeOpenedIsRefused) {
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(OpenThread(SYNCHRONIZE, FALSE, 0)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(OpenThread(SYNCHRONIZE, TRUE, GetCurrentThreadId())));
}

TEST_F(TerminateThreadTest, ThreadsEndInACrowd) {
    constexpr int kRounds = 50;
    for (int i = 0; i < kRounds; ++i) {
        EndedThread sleeper([] {
            while (true)
                Sleep(1);
        });
        EndedThread waiter([&] {
            while (true)
                WaitForSingleObject(m_event, 1);
        });
        EXPECT_TRUE(TerminateThread(sleeper.Handle(), 1));
        EXPECT_TRUE(TerminateThread(waiter.Handle(), 2));
        EXPECT_TRUE(sleeper.HasEnded());
        EXPECT_TRUE(waiter.HasEnded());
    }
}

using TerminateThreadInPipe = PipeFixture;

TEST_F(TerminateThreadInPipe, EndsAWaitForAClient) {
    const HANDLE server = Create();
    EndedThread thread([&] { ConnectNamedPipe(server, nullptr); });
    EXPECT_TRUE(thread.Ends());
    const HANDLE client = Open();
    EXPECT_EQ(ERROR_PIPE_CONNECTED, Connect(server)) << "the pipe goes on";
    EXPECT_EQ(ERROR_SUCCESS, Write(client, "text"));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(server));
}

TEST_F(TerminateThreadInPipe, EndsARead) {
    const HANDLE server = Create();
    const HANDLE client = Open();
    EndedThread thread([&] { Read(server); });
    EXPECT_TRUE(thread.Ends());
    EXPECT_EQ(ERROR_SUCCESS, Write(client, "text"));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(server));
}

using TerminateThreadInMailbox = MailboxRequestTest;

TEST_F(TerminateThreadInMailbox, CancelsItsRequests) {
    Request kept, request;
    ASSERT_EQ(ERROR_IO_PENDING, Query(m_device, kept));
    EndedThread thread([&] {
        EXPECT_EQ(ERROR_IO_PENDING, Query(m_device, request));
        request.Await();
    });
    EXPECT_TRUE(thread.Ends());
    EXPECT_EQ(1u, Device().PendingRequests());
    EXPECT_TRUE(kept.IsPending()) << "those of other threads go on";
    EXPECT_TRUE(CancelIoEx(m_device, nullptr));
}

TEST_F(TerminateThreadInMailbox, EndsAWaitForAResultOrACompletion) {
    Request request;
    EndedThread atRequest([&] {
        EXPECT_EQ(ERROR_IO_PENDING, Query(m_device, request));
        GetOverlappedResult(m_device, &request.overlapped, &request.bytes, TRUE);
    });
    EXPECT_TRUE(atRequest.Ends());
    EXPECT_EQ(0u, Device().PendingRequests());
    const HANDLE port = Keep(CreateIoCompletionPort(m_device, nullptr, 1, 0));
    EndedThread atPort([&] {
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        LPOVERLAPPED overlapped = nullptr;
        GetQueuedCompletionStatus(port, &bytes, &key, &overlapped, INFINITE);
    });
    EXPECT_TRUE(atPort.Ends());
}

TEST_F(TerminateThreadInMailbox, AnotherThreadLeadsTheDevice) {
    Request request;
    ASSERT_EQ(ERROR_IO_PENDING, Query(m_device, request));
    const auto frame = m_firmware.Receive();
    std::optional<EndedThread> leader(std::in_place, [&] { WaitForSingleObject(request.event, INFINITE); });
    leader->AwaitBlocked();
    std::promise<DWORD> result;
    std::thread other([&] { result.set_value(request.Await()); });
    EXPECT_TRUE(leader->Ends());
    m_firmware.Respond(frame, 0, "answer");
    other.join();
    EXPECT_EQ(ERROR_SUCCESS, result.get_future().get());
    EXPECT_EQ("answer", request.Received());
}

using TerminateThreadInSelect = WinsockFixture;

TEST_F(TerminateThreadInSelect, EndsTheWait) {
    const SOCKET listener = NewListener();
    EndedThread thread([&] {
        fd_set sockets{};
        sockets.fd_count = 1;
        sockets.fd_array[0] = listener;
        select(0, &sockets, nullptr, nullptr, nullptr);
    });
    EXPECT_TRUE(thread.Ends());
    closesocket(listener);
}

}  // namespace
