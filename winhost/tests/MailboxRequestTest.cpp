// Opening the mailbox, and requests to the firmware.
#include "winhost/tests/MailboxFixture.h"

using mpmlink::Kind;

namespace {

class MailboxOpenTest : public MailboxFixture {};

TEST_F(MailboxOpenTest, EachHandleIsAConnection) {
    const HANDLE first = Open();
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    auto firstConnection = m_peer->Accept();
    const HANDLE second = Open();
    ASSERT_NE(second, INVALID_HANDLE_VALUE);
    auto secondConnection = m_peer->Accept();
    EXPECT_EQ(Device().OpenHandles(), 2u);
    CloseHandle(first);
    EXPECT_TRUE(firstConnection.AwaitEnd());
    EXPECT_EQ(Device().OpenHandles(), 1u);
    CloseHandle(second);
    EXPECT_TRUE(secondConnection.AwaitEnd());
}

TEST_F(MailboxOpenTest, AThirdHandleIsRefused) {
    const HANDLE first = Open();
    Open();
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(Open()));
    CloseHandle(first);
    EXPECT_NE(Open(), INVALID_HANDLE_VALUE);
}

TEST_F(MailboxOpenTest, ThereIsNothingToOpenWithoutTheFirmware) {
    m_peer->Close();
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(Open()));
    EXPECT_EQ(Device().OpenHandles(), 0u);
}

TEST_F(MailboxOpenTest, HandlesAreOverlappedAndOtherPathsNameNoDevice) {
    const auto errorOfOpen = [](const char* path, DWORD flags) {
        return ErrorOf(
            CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags, nullptr));
    };
    EXPECT_EQ(ERROR_NOT_SUPPORTED, errorOfOpen(winhost::MailboxDevice::kPath, 0));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, errorOfOpen(R"(\\?\other)", FILE_FLAG_OVERLAPPED));
}

TEST_F(MailboxRequestTest, PendsUntilTheFirmwareAnswers) {
    Request request;
    EXPECT_EQ(Write(m_device, request, "input"), ERROR_IO_PENDING);
    const auto frame = m_firmware.Receive();
    EXPECT_EQ(frame.header.kind, Kind::Request);
    EXPECT_EQ(frame.header.code, kWriteCode);
    EXPECT_EQ(frame.header.value, 0u);
    EXPECT_EQ(frame.payload, "input");
    EXPECT_TRUE(request.IsPending());
    EXPECT_EQ(Device().PendingRequests(), 1u);
    m_firmware.Respond(frame, 0);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
    EXPECT_EQ(request.bytes, 0u);
    EXPECT_EQ(Device().PendingRequests(), 0u);
}

TEST_F(MailboxRequestTest, ResultIsIncompleteWhileItPends) {
    Request request;
    Write(m_device, request, "");
    EXPECT_EQ(ERROR_IO_INCOMPLETE,
              ErrorOf(GetOverlappedResult(m_device, &request.overlapped, &request.bytes, FALSE)));
    m_firmware.Respond(m_firmware.Receive(), 0);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
}

TEST_F(MailboxRequestTest, ResultCanBeWaitedFor) {
    Request request;
    Query(m_device, request);
    std::thread firmware([&] { m_firmware.Respond(m_firmware.Receive(), 0, "abc"); });
    EXPECT_TRUE(GetOverlappedResult(m_device, &request.overlapped, &request.bytes, TRUE));
    EXPECT_EQ(request.Received(), "abc");
    firmware.join();
}

TEST_F(MailboxRequestTest, BringsTheAnswersBytes) {
    Request request(80);
    const auto frame = QueryAndReceive(request);
    EXPECT_EQ(frame.header.value, 80u);
    m_firmware.Respond(frame, 0, "version");
    EXPECT_EQ(request.AwaitBytes(), "version");
    EXPECT_EQ(request.buffer[7], '#');
}

TEST_F(MailboxRequestTest, AnswersMayComeOutOfOrder) {
    Request first, second;
    const auto firstFrame = QueryAndReceive(first);
    const auto secondFrame = QueryAndReceive(second);
    m_firmware.Respond(secondFrame, 0, "second");
    EXPECT_EQ(second.Await(), ERROR_SUCCESS);
    EXPECT_TRUE(first.IsPending());
    m_firmware.Respond(firstFrame, 0, "first");
    EXPECT_EQ(first.AwaitBytes(), "first");
    EXPECT_EQ(second.Received(), "second");
}

TEST_F(MailboxRequestTest, FailsWithTheFirmwaresError) {
    const DWORD kNoErrorNumber = 0x0A000000;
    for (const DWORD error : {1450u, 31u, 87u, 5u, 1117u, 8u, kNoErrorNumber}) {
        Request request;
        m_firmware.Respond(QueryAndReceive(request), error, "dropped");
        EXPECT_EQ(request.Await(), error == kNoErrorNumber ? DWORD{ERROR_MR_MID_NOT_FOUND} : error);
        EXPECT_EQ(request.bytes, 0u);
        EXPECT_EQ(request.buffer[0], '#');
    }
}

TEST_F(MailboxRequestTest, AnAnswerThatIsTooLongFillsTheBufferAndSaysSo) {
    Request request(4);
    Query(m_device, request);
    m_firmware.Respond(m_firmware.Receive(), 0, "123456");
    EXPECT_EQ(request.Await(), ERROR_MORE_DATA);
    EXPECT_EQ(request.Received(), "1234");
    ExpectTheNextIsAnswered();
}

TEST_F(MailboxRequestTest, CarriesALargePayloadWhole) {
    std::string input(0x20000, 'a');
    for (size_t i = 0; i < input.size(); ++i)
        input[i] = static_cast<char>(i * 7);
    Request request;
    EXPECT_EQ(Write(m_device, request, input), ERROR_IO_PENDING);
    const auto frame = m_firmware.Receive();
    EXPECT_TRUE(frame.payload == input);
    m_firmware.Respond(frame, 0);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
}

TEST_F(MailboxRequestTest, PendsAlsoWhenTheFirmwareTakesNothing) {
    constexpr int kRequests = 20;
    const std::string input(mpmlink::kMaxPayload / 2, 'x');
    std::vector<std::unique_ptr<Request>> requests;
    for (int i = 0; i < kRequests; ++i) {
        requests.push_back(std::make_unique<Request>());
        EXPECT_EQ(Write(m_device, *requests.back(), std::to_string(i) + input), ERROR_IO_PENDING);
    }
    for (int i = 0; i < kRequests; ++i) {
        const auto frame = m_firmware.Receive();
        EXPECT_TRUE(frame.payload == std::to_string(i) + input);
        m_firmware.Respond(frame, 0);
        EXPECT_EQ(requests[static_cast<size_t>(i)]->Await(), ERROR_SUCCESS);
    }
}

TEST_F(MailboxRequestTest, BeyondWhatIsKeptForTheFirmwareItIsRefused) {
    const std::string input(mpmlink::kMaxPayload, 'x');
    std::vector<std::unique_ptr<Request>> requests;
    DWORD error = ERROR_IO_PENDING;
    while (error == ERROR_IO_PENDING && requests.size() < 64) {
        requests.push_back(std::make_unique<Request>());
        error = Write(m_device, *requests.back(), input);
    }
    EXPECT_EQ(error, ERROR_NO_SYSTEM_RESOURCES);
    // Those that pend end with the close in spite of all that is kept.
    CloseHandle(m_device);
    requests.pop_back();
    for (auto& request : requests)
        EXPECT_EQ(request->Await(), ERROR_OPERATION_ABORTED);
}

TEST_F(MailboxRequestTest, NeedsAHandleOfTheDeviceAnOverlappedStructureAnEventAndASmallFrame) {
    Request request;
    EXPECT_EQ(Write(INVALID_HANDLE_VALUE, request, ""), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Write(request.event, request, ""), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CancelIoEx(INVALID_HANDLE_VALUE, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(DeviceIoControl(m_device, kWriteCode, nullptr, 0, nullptr, 0, nullptr, nullptr)));
    EXPECT_EQ(Write(m_device, request, std::string(mpmlink::kMaxPayload + 1, 'x')), ERROR_INVALID_PARAMETER);
    request.overlapped.hEvent = m_device;
    EXPECT_EQ(Write(m_device, request, ""), ERROR_INVALID_HANDLE);
}

TEST_F(MailboxRequestTest, ResetsItsEventAtTheStart) {
    Request request;
    SetEvent(request.event);
    Write(m_device, request, "");
    EXPECT_EQ(WaitForSingleObject(request.event, 0), WAIT_TIMEOUT);
    m_firmware.Respond(m_firmware.Receive(), 0);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
}

TEST_F(MailboxRequestTest, TellsItsStateInTheOverlapped) {
    Request request(8);
    Query(m_device, request);
    EXPECT_EQ(request.overlapped.Internal, STATUS_PENDING);
    CancelIoEx(m_device, &request.overlapped);
    EXPECT_EQ(request.Await(), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(request.overlapped.Internal, 0xC00703E3u);
    Request answered(8);
    Query(m_device, answered);
    m_firmware.Receive();
    m_firmware.Receive();
    const auto frame = LinkPeer::Frame{{0, Kind::Request, 2, kQueryCode, 8}, ""};
    m_firmware.Respond(frame, 0, "12345");
    EXPECT_EQ(answered.Await(), ERROR_SUCCESS);
    EXPECT_EQ(answered.overlapped.Internal, 0u);
    EXPECT_EQ(answered.overlapped.InternalHigh, 5u);
}

TEST_F(MailboxRequestTest, ManyThreadsMakeThemAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 100;
    std::thread firmware([&] {
        for (int i = 0; i < kThreads * kRounds; ++i) {
            const auto frame = m_firmware.Receive();
            m_firmware.Respond(frame, 0, frame.payload);
        }
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            for (int round = 0; round < kRounds; ++round) {
                std::string input = std::to_string(thread * kRounds + round);
                Request request;
                DeviceIoControl(m_device, kQueryCode, input.data(), static_cast<DWORD>(input.size()),
                                request.buffer.data(), static_cast<DWORD>(request.buffer.size()), nullptr,
                                &request.overlapped);
                EXPECT_EQ(request.AwaitBytes(), input);
            }
        });
    for (auto& thread : threads)
        thread.join();
    firmware.join();
}

TEST_F(MailboxRequestTest, EndsAtOnceWhenTheDriverIsToldSo) {
    Device().CompleteRequestsAtOnce(true);
    Request request;
    EXPECT_EQ(Query(m_device, request), ERROR_SUCCESS);
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
    EXPECT_EQ(request.bytes, 0u);
}

}  // namespace
