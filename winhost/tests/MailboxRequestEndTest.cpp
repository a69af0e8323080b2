// How requests end that the firmware does not answer: they are cancelled, or it goes away.
#include "winhost/tests/MailboxFixture.h"

using mpmlink::Kind;

namespace {

class MailboxCancelTest : public MailboxRequestTest {};

TEST_F(MailboxCancelTest, EndsOneRequest) {
    Request cancelled, other;
    const auto cancelledFrame = QueryAndReceive(cancelled);
    const auto otherFrame = QueryAndReceive(other);
    EXPECT_TRUE(CancelIoEx(m_device, &cancelled.overlapped));
    EXPECT_EQ(cancelled.Await(), ERROR_OPERATION_ABORTED);
    EXPECT_TRUE(other.IsPending());
    const auto cancel = m_firmware.Receive();
    EXPECT_EQ(cancel.header.kind, Kind::Cancel);
    EXPECT_EQ(cancel.header.id, cancelledFrame.header.id);
    m_firmware.Respond(otherFrame, 0, "answer");
    EXPECT_EQ(other.Await(), ERROR_SUCCESS);
}

TEST_F(MailboxCancelTest, EndsAllOfAHandle) {
    Request first, second;
    Query(m_device, first);
    Write(m_device, second, "x");
    EXPECT_TRUE(CancelIoEx(m_device, nullptr));
    EXPECT_EQ(first.Await(), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(second.Await(), ERROR_OPERATION_ABORTED);
}

TEST_F(MailboxCancelTest, LeavesTheOtherHandleAlone) {
    const HANDLE other = Open();
    Request request;
    Query(other, request);
    EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(m_device, nullptr)));
    EXPECT_TRUE(request.IsPending());
    CloseHandle(other);
    EXPECT_EQ(request.Await(), ERROR_OPERATION_ABORTED);
}

TEST_F(MailboxCancelTest, FindsNothingWhenNothingPends) {
    EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(m_device, nullptr)));
    Request request;
    Query(m_device, request);
    m_firmware.Respond(m_firmware.Receive(), 0);
    request.Await();
    EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(m_device, &request.overlapped)));
}

TEST_F(MailboxCancelTest, ALateAnswerIsDropped) {
    Request cancelled;
    const auto frame = QueryAndReceive(cancelled);
    CancelIoEx(m_device, nullptr);
    m_firmware.Receive();
    m_firmware.Respond(frame, 0, std::string(10'000, 'x'));
    ExpectTheNextIsAnswered();
    EXPECT_EQ(cancelled.buffer[0], '#');
}

TEST_F(MailboxCancelTest, EndsARequestWhoseAnswerStopsHalfway) {
    for (const bool closes : {false, true}) {
        SCOPED_TRACE(closes);
        Request request;
        const auto frame = QueryAndReceive(request);
        m_firmware.SendHeader({8, Kind::Response, frame.header.id, kQueryCode, 0});
        m_firmware.SendBytes("1234", 4);
        EXPECT_TRUE(closes ? CloseHandle(m_device) : CancelIoEx(m_device, nullptr));
        EXPECT_EQ(request.Await(), ERROR_OPERATION_ABORTED);
        if (closes) return;
        m_firmware.SendBytes("5678", 4);
        m_firmware.Receive();
        ExpectTheNextIsAnswered();
    }
}

TEST_F(MailboxCancelTest, ClosingTheHandleEndsWhatPends) {
    Request request, read;
    Query(m_device, request);
    Read(m_device, read);
    EXPECT_TRUE(CloseHandle(m_device));
    EXPECT_EQ(request.Await(), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(read.Await(), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(Device().PendingRequests(), 0u);
    EXPECT_EQ(Device().PendingReads(), 0u);
    EXPECT_EQ(Write(m_device, request, ""), ERROR_INVALID_HANDLE);
}

class MailboxGoneTest : public MailboxRequestTest {};

TEST_F(MailboxGoneTest, EndsWhatPendsWhenTheFirmwareVanishes) {
    Request request, read;
    Query(m_device, request);
    Read(m_device, read);
    m_firmware.Close();
    EXPECT_EQ(request.Await(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(read.Await(), ERROR_DEVICE_NOT_CONNECTED);
}

TEST_F(MailboxGoneTest, FailsLaterCallsToo) {
    Request request;
    Query(m_device, request);
    m_firmware.Close();
    request.Await();
    EXPECT_EQ(Query(m_device, request), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(Read(m_device, request), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(m_device, nullptr)));
}

TEST_F(MailboxGoneTest, ANewHandleReachesFirmwareThatIsBack) {
    m_firmware.Close();
    CloseHandle(m_device);
    const HANDLE device = Open();
    auto firmware = m_peer->Accept();
    Request request;
    Query(device, request);
    firmware.Respond(firmware.Receive(), 0, "back");
    EXPECT_EQ(request.Await(), ERROR_SUCCESS);
    CloseHandle(device);
}

TEST_F(MailboxGoneTest, EndsTheConnectionWithAPeerThatSendsTooLongAFrame) {
    Request request;
    Query(m_device, request);
    m_firmware.Receive();
    m_firmware.SendHeader({mpmlink::kMaxPayload + 1, Kind::Message, 0, 0, 0});
    EXPECT_EQ(request.Await(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_TRUE(m_firmware.AwaitEnd());
}

TEST_F(MailboxGoneTest, EndsTheConnectionWithAPeerThatSendsAnUnknownFrame) {
    for (const auto kind : {Kind::Request, Kind::Listen, Kind{0}, Kind{99}}) {
        const HANDLE device = Open();
        auto firmware = m_peer->Accept();
        Request request;
        Query(device, request);
        firmware.Receive();
        firmware.SendHeader({0, kind, 0, 0, 0});
        EXPECT_EQ(request.Await(), ERROR_DEVICE_NOT_CONNECTED);
        EXPECT_TRUE(firmware.AwaitEnd());
        CloseHandle(device);
    }
}

TEST_F(MailboxGoneTest, EndsTheConnectionWithAPeerThatSendsAMessageWhereNobodyListens) {
    Request request;
    Query(m_device, request);
    m_firmware.Receive();
    // The header is enough; what follows it may meet a connection that has ended.
    m_firmware.SendHeader({7, Kind::Message, 0, 0, 0});
    EXPECT_EQ(request.Await(), ERROR_DEVICE_NOT_CONNECTED);
}

}  // namespace
