// Large requests and messages go through memory that the firmware shares.
#include "testbed/SharedRing.h"
#include "winhost/tests/MailboxFixture.h"

using mpmlink::Kind;

namespace {

class MailboxMemoryTest : public MailboxRequestTest {
  protected:
    // Pends a read, by which the device offers its memory.
    void Listen(Request& read) {
        EXPECT_EQ(Read(m_device, read), ERROR_IO_PENDING);
        EXPECT_EQ(m_firmware.Receive().header.kind, Kind::Listen);
    }
};

TEST_F(MailboxMemoryTest, InputsOfAnySizeComeWhole) {
    for (const size_t size : {size_t(mpmlink::kLarge - 1), size_t(mpmlink::kLarge), size_t(300'001),
                              size_t(mpmlink::kMaxPayload)}) {
        const std::string input(size, static_cast<char>('a' + size % 26));
        Request request;
        EXPECT_EQ(Write(m_device, request, input), ERROR_IO_PENDING);
        const auto frame = m_firmware.Receive();
        EXPECT_EQ(frame.header.code, kWriteCode);
        EXPECT_TRUE(frame.payload == input) << size;
        EXPECT_EQ(frame.wasInMemory, size >= mpmlink::kLarge);
        m_firmware.Respond(frame, 0);
        EXPECT_EQ(request.Await(), ERROR_SUCCESS);
    }
}

// The input belongs to its caller again as soon as the request pends.
TEST_F(MailboxMemoryTest, TheCallersBufferMayChangeBeforeTheFirmwareReads) {
    std::string input(200'000, 'x');
    Request request;
    EXPECT_EQ(Write(m_device, request, input), ERROR_IO_PENDING);
    input.assign(input.size(), 'y');
    const auto frame = m_firmware.Receive();
    EXPECT_TRUE(frame.payload == std::string(200'000, 'x'));
    m_firmware.Respond(frame, 0);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
}

TEST_F(MailboxMemoryTest, MoreThanFitGoesThroughTheSocketInOrder) {
    constexpr size_t kCount = 2 * testbed::SharedRing::kSize / 300'000;
    std::vector<std::unique_ptr<Request>> requests;
    std::thread caller([&] {
        for (size_t i = 0; i < kCount; ++i) {
            requests.push_back(std::make_unique<Request>());
            Write(m_device, *requests.back(), std::string(300'000, static_cast<char>('a' + i)));
        }
        for (const auto& request : requests)
            EXPECT_EQ(request->Await(), ERROR_SUCCESS);
    });
    EXPECT_TRUE(Eventually([&] { return Device().PendingRequests() == kCount; }));
    size_t inMemory = 0;
    for (size_t i = 0; i < kCount; ++i) {
        const auto frame = m_firmware.Receive();
        EXPECT_TRUE(frame.payload == std::string(300'000, static_cast<char>('a' + i))) << i;
        inMemory += frame.wasInMemory;
        m_firmware.Respond(frame, 0);
    }
    caller.join();
    EXPECT_EQ(inMemory, testbed::SharedRing::kSize / 300'000);
}

// After one of these numbers of short requests the socket has no room for the place of the large input.
TEST_F(MailboxMemoryTest, MemoryHasItsRoomAgainWhenTheSocketWasFull) {
    const std::string largest(mpmlink::kMaxPayload, 'l');
    bool isFull = false;
    for (int count = 80; !isFull; ++count) {
        std::deque<Request> requests;
        for (int i = 0; i <= count && !isFull; ++i) {
            const std::string input = i < count ? std::string(12'000, 's') : largest;
            isFull = Write(m_device, requests.emplace_back(), input) != ERROR_IO_PENDING;
        }
        if (isFull) requests.pop_back();
        std::thread firmware([&] {
            for (size_t i = 0; i < requests.size(); ++i)
                m_firmware.Respond(m_firmware.Receive(), 0);
        });
        for (Request& request : requests)
            EXPECT_EQ(request.Await(), ERROR_SUCCESS);
        firmware.join();
    }
    Request first, second;
    Write(m_device, first, largest);
    Write(m_device, second, largest);
    for (Request* request : {&first, &second}) {
        const auto frame = m_firmware.Receive();
        EXPECT_TRUE(frame.wasInMemory);
        m_firmware.Respond(frame, 0);
        EXPECT_EQ(request->Await(), ERROR_SUCCESS);
    }
}

TEST_F(MailboxMemoryTest, ALargeMessageIntoAnEmptyBufferIsLost) {
    Request read(0);
    EXPECT_EQ(Result(ReadFile(m_device, nullptr, 0, nullptr, &read.overlapped)), ERROR_IO_PENDING);
    EXPECT_EQ(m_firmware.Receive().header.kind, Kind::Listen);
    m_firmware.SendLargeMessage(std::string(70'000, 'm'));
    EXPECT_EQ(read.Await(), ERROR_MORE_DATA);
    ExpectTheNextIsAnswered();
}

TEST_F(MailboxMemoryTest, ALargeMessageFillsTheRead) {
    Request read(100'000);
    Listen(read);
    m_firmware.SendLargeMessage(std::string(70'000, 'm'));
    EXPECT_TRUE(read.AwaitBytes() == std::string(70'000, 'm'));
    ExpectTheNextIsAnswered();
}

TEST_F(MailboxMemoryTest, ALargeMessageWaitsForARead) {
    Request first(100'000), second(100'000);
    Listen(first);
    m_firmware.SendMessage("short");
    m_firmware.SendLargeMessage(std::string(70'000, 'm'));
    EXPECT_EQ(first.AwaitBytes(), "short");
    EXPECT_EQ(Read(m_device, second), ERROR_IO_PENDING);
    EXPECT_TRUE(second.AwaitBytes() == std::string(70'000, 'm'));
}

TEST_F(MailboxMemoryTest, ALargeMessageThatIsTooLongFillsTheBufferAndSaysSo) {
    Request read(10);
    Listen(read);
    m_firmware.SendLargeMessage(std::string(70'000, 'm'));
    EXPECT_EQ(read.Await(), ERROR_MORE_DATA);
    EXPECT_EQ(read.Received(), "mmmmmmmmmm");
    ExpectTheNextIsAnswered();
}

TEST_F(MailboxMemoryTest, AMessageOutsideOfTheMemoryEndsTheConnection) {
    Request read;
    Listen(read);
    m_firmware.SendHeader({0, Kind::LargeMessage, testbed::SharedRing::kSize - 1, 0, 2});
    EXPECT_EQ(read.Await(), ERROR_DEVICE_NOT_CONNECTED);
}

TEST_F(MailboxMemoryTest, ALargeMessageWithAPayloadEndsTheConnection) {
    Request read;
    Listen(read);
    m_firmware.SendHeader({1, Kind::LargeMessage, 0, 0, 2});
    EXPECT_EQ(read.Await(), ERROR_DEVICE_NOT_CONNECTED);
}

TEST_F(MailboxMemoryTest, ALargeMessageBeforeTheFirstReadEndsTheConnection) {
    Request request;
    QueryAndReceive(request);
    m_firmware.SendHeader({0, Kind::LargeMessage, 0, 0, 2});
    EXPECT_EQ(request.Await(), ERROR_DEVICE_NOT_CONNECTED);
}

}  // namespace
