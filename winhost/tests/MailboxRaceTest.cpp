// Ends that meet: whatever comes first, a request ends once, and nothing touches it afterwards.
#include "winhost/tests/MailboxFixture.h"

namespace {

constexpr int kRounds = 100;

class MailboxRaceTest : public MailboxFixture {};

// Answers each request and sends a message with it, until the host has gone.
void Serve(LinkPeer::Connection firmware) {
    try {
        for (;;) {
            const auto frame = firmware.Receive();
            if (frame.header.kind == mpmlink::Kind::Request) firmware.Respond(frame, 0, "answer");
            firmware.SendMessage(std::string(5000, 'm'));
        }
    } catch (const std::runtime_error&) {
        // The host has closed its handle.
    }
}

TEST_F(MailboxRaceTest, ClosingMeetsAnswersAndMessages) {
    for (int round = 0; round < kRounds; ++round) {
        const HANDLE device = Open();
        std::thread firmware(Serve, m_peer->Accept());
        std::vector<std::unique_ptr<Request>> requests;
        for (int i = 0; i < 10; ++i) {
            requests.push_back(std::make_unique<Request>(8192));
            const DWORD error = i % 2 ? Query(device, *requests.back()) : Read(device, *requests.back());
            ASSERT_EQ(error, ERROR_IO_PENDING);
        }
        EXPECT_EQ(requests[round % 10]->Await(), ERROR_SUCCESS);
        CloseHandle(device);
        for (const auto& request : requests)
            EXPECT_FALSE(request->IsPending());
        requests.clear();
        firmware.join();
    }
    EXPECT_EQ(Device().PendingReads(), 0u);
    EXPECT_EQ(Device().PendingRequests(), 0u);
}

TEST_F(MailboxRaceTest, CancellingMeetsAnswers) {
    const HANDLE device = Open();
    std::thread firmware([&] {
        auto connection = m_peer->Accept();
        try {
            for (;;) {
                const auto frame = connection.Receive();
                if (frame.header.kind == mpmlink::Kind::Request) connection.Respond(frame, 0, "answer");
            }
        } catch (const std::runtime_error&) {
        }
    });
    int answered = 0;
    for (int round = 0; round < kRounds * 5; ++round) {
        Request request;
        ASSERT_EQ(Query(device, request), ERROR_IO_PENDING);
        const bool cancelled = CancelIoEx(device, &request.overlapped);
        const DWORD error = request.Await();
        EXPECT_EQ(error, cancelled ? ERROR_OPERATION_ABORTED : ERROR_SUCCESS);
        // Its event was set once.
        EXPECT_EQ(WaitForSingleObject(request.event, 0), WAIT_TIMEOUT);
        answered += error == ERROR_SUCCESS;
    }
    CloseHandle(device);
    firmware.join();
    RecordProperty("answered", answered);
}

TEST_F(MailboxRaceTest, ClosingMeetsThreadsThatMakeRequests) {
    for (int round = 0; round < kRounds; ++round) {
        const HANDLE device = Open();
        std::thread firmware(Serve, m_peer->Accept());
        std::vector<std::thread> callers;
        for (int i = 0; i < 3; ++i)
            callers.emplace_back([device] {
                DWORD error = ERROR_SUCCESS;
                while (error == ERROR_SUCCESS) {
                    Request request;
                    error = Query(device, request);
                    if (error == ERROR_IO_PENDING) error = request.Await();
                }
                EXPECT_TRUE(error == ERROR_OPERATION_ABORTED || error == ERROR_INVALID_HANDLE ||
                            error == ERROR_DEVICE_NOT_CONNECTED)
                    << error;
            });
        CloseHandle(device);
        for (auto& caller : callers)
            caller.join();
        firmware.join();
    }
}

}  // namespace
