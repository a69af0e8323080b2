// The mailbox has no thread of its own: the threads that wait for it do its work, for each other too.
#include "winhost/tests/MailboxFixture.h"

using namespace std::chrono_literals;
using mpmlink::Kind;

namespace {

// A thread that waits for an event with a time limit. The PC's clock knows when the thread is blocked.
class Waiting {
  public:
    Waiting(HANDLE event, DWORD milliseconds)
        : m_thread([this, event, milliseconds] { m_result = WaitForSingleObject(event, milliseconds); }) {
        m_isBlocked = winhost::Clock::Instance().AwaitSleeper(std::chrono::milliseconds(milliseconds));
    }
    ~Waiting() {
        if (m_thread.joinable()) m_thread.join();
    }
    bool IsBlocked() const { return m_isBlocked; }
    DWORD Result() {
        m_thread.join();
        return m_result;
    }

  private:
    bool m_isBlocked = false;
    DWORD m_result = WAIT_FAILED;
    std::thread m_thread;
};

class MailboxWaitTest : public MailboxRequestTest {
  protected:
    // Makes the two requests, each with a frame at the firmware, and has a thread wait for the first: it
    // leads.
    void MakeBoth() {
        m_firstFrame = QueryAndReceive(m_first);
        m_secondFrame = QueryAndReceive(m_second);
        m_leader.emplace(m_first.event, 5000);
        ASSERT_TRUE(m_leader->IsBlocked());
    }
    // Another thread waits for the second request and follows.
    void MakeBothAndFollow() {
        MakeBoth();
        m_follower.emplace(m_second.event, 60'000);
        ASSERT_TRUE(m_follower->IsBlocked());
    }
    void ExpectTheFollowerLeads() {
        m_firmware.Respond(m_secondFrame, 0, "second");
        EXPECT_EQ(m_follower->Result(), WAIT_OBJECT_0);
        EXPECT_FALSE(m_second.IsPending());
    }

    const ManualTime m_manual;
    Request m_first, m_second;
    LinkPeer::Frame m_firstFrame, m_secondFrame;
    std::optional<Waiting> m_leader, m_follower;
};

TEST_F(MailboxWaitTest, NeedsNoThreadOfItsOwn) {
    const size_t threads = Threads();
    Read(m_device, m_first);
    Query(m_device, m_second);
    EXPECT_EQ(threads, Threads());
}

TEST_F(MailboxWaitTest, AThreadThatWaitsCompletesTheRequestsOfOthers) {
    MakeBoth();
    m_firmware.Respond(m_secondFrame, 0, "second");
    EXPECT_TRUE(Eventually([&] { return Device().PendingRequests() == 1; }));
    EXPECT_EQ(m_second.AwaitBytes(), "second");
    m_firmware.Respond(m_firstFrame, 0);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
}

TEST_F(MailboxWaitTest, AThreadThatWaitsWakesTheOthers) {
    MakeBothAndFollow();
    ExpectTheFollowerLeads();
    m_firmware.Respond(m_firstFrame, 0);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
}

TEST_F(MailboxWaitTest, AnotherThreadLeadsWhenTheLeaderHasItsAnswer) {
    MakeBothAndFollow();
    m_firmware.Respond(m_firstFrame, 0);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    ExpectTheFollowerLeads();
}

TEST_F(MailboxWaitTest, AnotherThreadLeadsWhenTheLeadersTimeIsUp) {
    MakeBothAndFollow();
    Clock().Advance(5s);
    EXPECT_EQ(m_leader->Result(), WAIT_TIMEOUT);
    EXPECT_TRUE(m_first.IsPending());
    ExpectTheFollowerLeads();
}

TEST_F(MailboxWaitTest, AnotherThreadLeadsWhenTheLeadersEventIsSetByHand) {
    MakeBothAndFollow();
    SetEvent(m_first.event);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    EXPECT_TRUE(m_first.IsPending());
    ExpectTheFollowerLeads();
}

TEST_F(MailboxWaitTest, AnotherThreadLeadsWhenTheLeadersRequestIsCancelled) {
    MakeBothAndFollow();
    EXPECT_TRUE(CancelIoEx(m_device, &m_first.overlapped));
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    ExpectTheFollowerLeads();
}

TEST_F(MailboxWaitTest, AnotherThreadGoesOnWithAnAnswerThatIsHalfThere) {
    MakeBothAndFollow();
    m_firmware.SendHeader({6, Kind::Response, m_secondFrame.header.id, kQueryCode, 0});
    m_firmware.SendBytes("sec", 3);
    EXPECT_TRUE(Eventually([&] { return m_firmware.AllTaken(); }));
    Clock().Advance(5s);
    EXPECT_EQ(m_leader->Result(), WAIT_TIMEOUT);
    m_firmware.SendBytes("ond", 3);
    EXPECT_EQ(m_follower->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(m_second.Result(), ERROR_SUCCESS);
    EXPECT_EQ(m_second.Received(), "second");
}

TEST_F(MailboxWaitTest, ACloseEndsTheWaitsOfAll) {
    MakeBothAndFollow();
    CloseHandle(m_device);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(m_follower->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(m_first.overlapped.Internal, 0xC00703E3u);
    EXPECT_EQ(m_second.overlapped.Internal, 0xC00703E3u);
}

TEST_F(MailboxWaitTest, TheFirmwaresEndEndsTheWaitsOfAll) {
    MakeBothAndFollow();
    m_firmware.Close();
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(m_follower->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(m_second.Result(), ERROR_DEVICE_NOT_CONNECTED);
}

TEST_F(MailboxWaitTest, AThreadThatWaitedBeforeTheRequestWasMadeLeadsToo) {
    m_leader.emplace(m_first.event, 5000);
    ASSERT_TRUE(m_leader->IsBlocked());
    Query(m_device, m_first);
    m_firmware.Respond(m_firmware.Receive(), 0);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
}

TEST_F(MailboxWaitTest, TheLeaderSendsWhatTheSocketHadNoRoomFor) {
    const std::string input(mpmlink::kMaxPayload, 'x');
    std::vector<std::unique_ptr<Request>> requests;
    for (int i = 0; i < 10; ++i) {
        requests.push_back(std::make_unique<Request>());
        ASSERT_EQ(Write(m_device, *requests.back(), input), ERROR_IO_PENDING);
    }
    m_leader.emplace(requests.back()->event, 5000);
    for (size_t i = 0; i < requests.size(); ++i) {
        const auto frame = m_firmware.Receive();
        EXPECT_TRUE(frame.payload == input);
        m_firmware.Respond(frame, 0);
    }
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
}

TEST_F(MailboxWaitTest, ANewReadReleasesTheAnswersBehindAMessage) {
    Request read;
    Read(m_device, read);
    ASSERT_EQ(m_firmware.Receive().header.kind, Kind::Listen);
    m_firmware.SendMessage("one");
    ASSERT_EQ(read.Await(), ERROR_SUCCESS);
    MakeBoth();
    // The leader has the header and takes no more.
    m_firmware.SendHeader({3, Kind::Message, 0, 0, 0});
    EXPECT_TRUE(Eventually([&] { return m_firmware.AllTaken(); }));
    m_firmware.SendBytes("two", 3);
    m_firmware.Respond(m_firstFrame, 0);
    Request next;
    EXPECT_EQ(Read(m_device, next), ERROR_IO_PENDING);
    EXPECT_EQ(m_leader->Result(), WAIT_OBJECT_0);
    EXPECT_EQ(next.AwaitBytes(), "two");
}

TEST_F(MailboxWaitTest, AnEventServesTheRequestsOfOneHandleAtATime) {
    const HANDLE other = Open();
    Query(m_device, m_first);
    m_second.overlapped.hEvent = m_first.event;
    EXPECT_EQ(Query(other, m_second), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(Query(m_device, m_second), ERROR_IO_PENDING);
    CancelIoEx(m_device, nullptr);
    EXPECT_EQ(Query(other, m_second), ERROR_IO_PENDING);
    CancelIoEx(other, nullptr);
}

// A thread that doesn't wait sees what has come.

TEST_F(MailboxWaitTest, AWaitOfNoTimeSeesAnAnswerThatIsThere) {
    Query(m_device, m_first);
    Query(m_device, m_second);
    m_firmware.Respond(m_firmware.Receive(), 0);
    m_firmware.Respond(m_firmware.Receive(), 0);
    EXPECT_EQ(WaitForSingleObject(m_second.event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(m_first.event, 0), WAIT_OBJECT_0);
}

TEST_F(MailboxWaitTest, AWaitOfNoTimeSeesThatTheFirmwareHasGone) {
    Query(m_device, m_first);
    m_firmware.Close();
    EXPECT_EQ(WaitForSingleObject(m_first.event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(m_first.Result(), ERROR_DEVICE_NOT_CONNECTED);
}

TEST_F(MailboxWaitTest, TheResultOfAnAnswerThatIsThereIsComplete) {
    Query(m_device, m_first);
    m_firmware.Respond(m_firmware.Receive(), 0, "first");
    EXPECT_EQ(m_first.Result(), ERROR_SUCCESS);
    EXPECT_EQ(m_first.Received(), "first");
}

TEST_F(MailboxWaitTest, ARequestWithoutAnEventIsSeenToHaveCompleted) {
    m_first.overlapped.hEvent = nullptr;
    Read(m_device, m_first);
    EXPECT_TRUE(m_first.IsPending());
    m_firmware.SendMessage("message");
    EXPECT_FALSE(m_first.IsPending());
}

class MailboxPortWaitTest : public MailboxWaitTest {
  protected:
    static DWORD Take(HANDLE port, DWORD milliseconds) {
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        return Result(GetQueuedCompletionStatus(port, &bytes, &key, &overlapped, milliseconds));
    }

    const HANDLE m_port = Keep(CreateIoCompletionPort(m_device, nullptr, 1, 0));
};

TEST_F(MailboxPortWaitTest, TakesAMessageThatIsThereInNoTime) {
    Request read;
    Read(m_device, read);
    EXPECT_EQ(Take(m_port, 0), WAIT_TIMEOUT);
    m_firmware.SendMessage("message");
    EXPECT_EQ(Take(m_port, 0), ERROR_SUCCESS);
}

TEST_F(MailboxPortWaitTest, AThreadAtThePortLeadsWhenTheLeaderHasItsAnswer) {
    Request read;
    Read(m_device, read);
    ASSERT_EQ(m_firmware.Receive().header.kind, Kind::Listen);
    // Keeps its end from the port, as the end of the read is waited for there.
    m_first.overlapped.hEvent = reinterpret_cast<HANDLE>(reinterpret_cast<uintptr_t>(m_first.event) | 1);
    ASSERT_EQ(Query(m_device, m_first), ERROR_IO_PENDING);
    const auto frame = m_firmware.Receive();
    Waiting leader(m_first.event, 5000);
    DWORD taken = WAIT_FAILED;
    std::thread atPort([&] { taken = Take(m_port, 60'000); });
    EXPECT_TRUE(Clock().AwaitSleeper(60s));
    m_firmware.Respond(frame, 0);
    EXPECT_EQ(leader.Result(), WAIT_OBJECT_0);
    m_firmware.SendMessage("message");
    atPort.join();
    EXPECT_EQ(taken, ERROR_SUCCESS);
}

class MailboxWaitRace : public MailboxRequestTest {};

// The leading thread gives up again and again, and each answer arrives all the same.
TEST_F(MailboxWaitRace, TimeOutsMeetAnswers) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::thread firmware([&] {
        for (int i = 0; i < kThreads * kRounds; ++i) {
            const auto frame = m_firmware.Receive();
            if (i % 8 == 0) std::this_thread::sleep_for(2ms);
            m_firmware.Respond(frame, 0, frame.payload);
        }
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                Request request;
                Query(m_device, request);
                while (WaitForSingleObject(request.event, 1) == WAIT_TIMEOUT) {
                }
                EXPECT_FALSE(request.IsPending());
            }
        });
    for (auto& thread : threads)
        thread.join();
    firmware.join();
}

}  // namespace
