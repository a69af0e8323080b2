// Messages of the firmware, and the completion port that they arrive at.
#include <span>

#include "winhost/tests/MailboxFixture.h"

using mpmlink::Kind;

namespace {

class MailboxReadTest : public MailboxRequestTest {};

TEST_F(MailboxReadTest, TheFirstReadListensAndTheNextDoNot) {
    Request first, second, request;
    EXPECT_EQ(Read(m_device, first), ERROR_IO_PENDING);
    EXPECT_EQ(m_firmware.Receive().header.kind, Kind::Listen);
    EXPECT_EQ(Read(m_device, second), ERROR_IO_PENDING);
    EXPECT_EQ(Device().PendingReads(), 2u);
    Query(m_device, request);
    EXPECT_EQ(m_firmware.Receive().header.kind, Kind::Request);
    CloseHandle(m_device);
}

TEST_F(MailboxReadTest, AMessageCompletesTheOldestRead) {
    Request first, second;
    Read(m_device, first);
    Read(m_device, second);
    m_firmware.SendMessage("one");
    EXPECT_EQ(first.AwaitBytes(), "one");
    EXPECT_TRUE(second.IsPending());
    m_firmware.SendMessage("two");
    EXPECT_EQ(second.AwaitBytes(), "two");
}

TEST_F(MailboxReadTest, AnEmptyMessageCompletesAReadWithNothing) {
    Request read;
    Read(m_device, read);
    m_firmware.SendMessage("");
    EXPECT_EQ(read.Await(), ERROR_SUCCESS);
    EXPECT_EQ(read.bytes, 0u);
}

TEST_F(MailboxReadTest, AMessageOfTheLargestBufferArrivesWhole) {
    std::string message(0x20000, 'm');
    for (size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<char>(i * 13);
    Request read(0x20000);
    Read(m_device, read);
    m_firmware.SendMessage(message);
    EXPECT_EQ(read.Await(), ERROR_SUCCESS);
    EXPECT_TRUE(read.buffer == message);
    EXPECT_EQ(read.bytes, 0x20000u);
}

TEST_F(MailboxReadTest, MessagesThatComeTogetherAreReadOneByOne) {
    Request first;
    Read(m_device, first);
    const size_t sizes[] = {0, 1, 40, 0, 511, 512, 513, 3, 5000, 2};
    for (const size_t size : sizes)
        m_firmware.SendMessage(std::string(size, static_cast<char>('a' + size % 26)));
    EXPECT_EQ(first.Await(), ERROR_SUCCESS);
    for (const size_t size : std::span(sizes).subspan(1)) {
        Request read(8192);
        Read(m_device, read);
        ASSERT_EQ(read.Await(), ERROR_SUCCESS) << size;
        EXPECT_EQ(read.Received(), std::string(size, static_cast<char>('a' + size % 26)));
    }
}

TEST_F(MailboxReadTest, AMessageBehindAnAnswerIsThereForTheThreadThatReads) {
    Request read, query;
    Read(m_device, read);
    m_firmware.Receive();
    DWORD error = ERROR_GEN_FAILURE;
    std::thread reader([&] { error = read.Await(); });
    Query(m_device, query);
    m_firmware.Respond(m_firmware.Receive(), ERROR_SUCCESS, "1234");
    m_firmware.SendMessage("message");
    EXPECT_EQ(query.Await(), ERROR_SUCCESS);
    reader.join();
    EXPECT_EQ(error, ERROR_SUCCESS);
    EXPECT_EQ(read.Received(), "message");
}

TEST_F(MailboxReadTest, AMessageThatIsTooLongFillsTheBufferAndLosesItsRest) {
    Request read(4), next;
    Read(m_device, read);
    m_firmware.SendMessage("123456");
    EXPECT_EQ(read.Await(), ERROR_MORE_DATA);
    EXPECT_EQ(read.Received(), "1234");
    Read(m_device, next);
    m_firmware.SendMessage("next");
    EXPECT_EQ(next.AwaitBytes(), "next");
}

TEST_F(MailboxReadTest, AMessageThatNobodyReadsWaitsInTheSocket) {
    Request first, second;
    Read(m_device, first);
    m_firmware.SendMessage("one");
    first.Await();
    m_firmware.SendMessage("two");
    EXPECT_FALSE(m_firmware.AllTaken());
    Read(m_device, second);
    EXPECT_EQ(second.AwaitBytes(), "two");
}

TEST_F(MailboxReadTest, ACancelledReadEndsAndTheNextTakesTheMessage) {
    Request cancelled, next;
    Read(m_device, cancelled);
    Read(m_device, next);
    EXPECT_TRUE(CancelIoEx(m_device, &cancelled.overlapped));
    EXPECT_EQ(cancelled.Await(), ERROR_OPERATION_ABORTED);
    m_firmware.SendMessage("message");
    EXPECT_EQ(next.AwaitBytes(), "message");
}

TEST_F(MailboxReadTest, EndsAtOnceWhenTheDriverIsToldSo) {
    Device().CompleteReadsAtOnce(true);
    Request read;
    EXPECT_EQ(Read(m_device, read), ERROR_SUCCESS);
    EXPECT_EQ(read.Await(), ERROR_SUCCESS);
    EXPECT_EQ(read.bytes, 0u);
}

class CompletionPortTest : public MailboxReadTest {
  protected:
    static constexpr ULONG_PTR kKey = 1;
    struct Completion {
        DWORD error = 0;
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
    };

    CompletionPortTest() {
        for (int i = 0; i < 10; ++i) {
            m_reads.push_back(std::make_unique<Request>());
            m_reads.back()->overlapped.hEvent = nullptr;
        }
    }

    Completion Take(DWORD milliseconds = INFINITE) {
        Completion completion;
        completion.error = Result(GetQueuedCompletionStatus(m_port, &completion.bytes, &completion.key,
                                                            &completion.overlapped, milliseconds));
        return completion;
    }
    void ReadAll() {
        for (auto& read : m_reads)
            EXPECT_EQ(Read(m_device, *read), ERROR_IO_PENDING);
    }

    const HANDLE m_port = Keep(CreateIoCompletionPort(m_device, nullptr, kKey, 0));
    std::vector<std::unique_ptr<Request>> m_reads;
};

TEST_F(CompletionPortTest, GivesTenReadsBackInTheOrderOfTheMessages) {
    ReadAll();
    for (int i = 0; i < 10; ++i)
        m_firmware.SendMessage("message " + std::to_string(i));
    for (int i = 0; i < 10; ++i) {
        const auto completion = Take();
        EXPECT_EQ(completion.error, ERROR_SUCCESS);
        EXPECT_EQ(completion.key, kKey);
        EXPECT_EQ(completion.bytes, 9u);
        Request& read = *m_reads[static_cast<size_t>(i)];
        EXPECT_EQ(completion.overlapped, &read.overlapped);
        EXPECT_EQ(read.buffer.substr(0, 9), "message " + std::to_string(i));
    }
}

TEST_F(CompletionPortTest, WakesAThreadThatWaitsForEver) {
    ReadAll();
    Completion completion;
    std::thread waiter([&] { completion = Take(); });
    m_firmware.SendMessage("ab");
    waiter.join();
    EXPECT_EQ(completion.error, ERROR_SUCCESS);
    EXPECT_EQ(completion.bytes, 2u);
}

TEST_F(CompletionPortTest, GivesFailedReadsWithTheirErrorAndOverlapped) {
    ReadAll();
    m_firmware.Close();
    for (auto& read : m_reads) {
        const auto completion = Take();
        EXPECT_EQ(completion.error, ERROR_DEVICE_NOT_CONNECTED);
        EXPECT_EQ(completion.overlapped, &read->overlapped);
    }
}

TEST_F(CompletionPortTest, GivesCancelledReadsAndThoseOfAClosedHandle) {
    for (const bool closes : {false, true}) {
        ReadAll();
        EXPECT_TRUE(closes ? CloseHandle(m_device) : CancelIoEx(m_device, nullptr));
        for (size_t i = 0; i < m_reads.size(); ++i)
            EXPECT_EQ(Take().error, ERROR_OPERATION_ABORTED) << closes;
    }
}

TEST_F(CompletionPortTest, GivesATooLongMessageAsAFailure) {
    m_reads[0]->buffer.resize(2);
    Read(m_device, *m_reads[0]);
    m_firmware.SendMessage("123");
    const auto completion = Take();
    EXPECT_EQ(completion.error, ERROR_MORE_DATA);
    EXPECT_EQ(completion.bytes, 2u);
    EXPECT_EQ(completion.overlapped, &m_reads[0]->overlapped);
}

TEST_F(CompletionPortTest, GivesAlsoWhatCompletedAtOnce) {
    Device().CompleteReadsAtOnce(true);
    EXPECT_EQ(Read(m_device, *m_reads[0]), ERROR_SUCCESS);
    const auto completion = Take(0);
    EXPECT_EQ(completion.error, ERROR_SUCCESS);
    EXPECT_EQ(completion.overlapped, &m_reads[0]->overlapped);
}

TEST_F(CompletionPortTest, IsLeftOutByAnEventWithItsLowestBitSet) {
    Request read;
    read.overlapped.hEvent = reinterpret_cast<HANDLE>(reinterpret_cast<uintptr_t>(read.event) | 1);
    Read(m_device, read);
    m_firmware.SendMessage("ab");
    EXPECT_EQ(read.Await(), ERROR_SUCCESS);
    EXPECT_EQ(Take(0).error, WAIT_TIMEOUT);
}

TEST_F(CompletionPortTest, TimesOutByThePcsClockWithoutOverlapped) {
    const ManualTime manual;
    Completion completion;
    completion.overlapped = &m_reads[0]->overlapped;
    std::thread waiter([&] { completion = Take(5000); });
    PassSleepOf(std::chrono::seconds(5));
    waiter.join();
    EXPECT_EQ(completion.error, WAIT_TIMEOUT);
    EXPECT_EQ(completion.overlapped, nullptr);
}

TEST_F(CompletionPortTest, ItsEndWakesWhoeverWaits) {
    const ManualTime manual;
    Completion completion;
    std::thread waiter([&] { completion = Take(5000); });
    ASSERT_TRUE(Clock().AwaitSleeper(std::chrono::seconds(5)));
    CloseHandle(m_port);
    waiter.join();
    EXPECT_EQ(completion.error, ERROR_ABANDONED_WAIT_0);
    EXPECT_EQ(completion.overlapped, nullptr);
}

TEST_F(CompletionPortTest, IsTheOnlyOneOfAFileAndNeededToTakeFrom) {
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(CreateIoCompletionPort(m_device, nullptr, 2, 0)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CreateIoCompletionPort(m_port, nullptr, 1, 0))) << "no file";
    DWORD bytes = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* overlapped = nullptr;
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              ErrorOf(GetQueuedCompletionStatus(m_device, &bytes, &key, &overlapped, 0)));
}

}  // namespace
