// The commands that name a console for alerts and post one.
#include "dash/Indications.h"

#include <cstddef>
#include <cstring>
#include <string>

#include "tests/support/AlertConsole.h"
#include "tests/support/LinkedFixture.h"

namespace {

using namespace std::chrono_literals;

std::string DestinationRecord(const std::string& host, uint16_t port, const std::string& uri,
                              bool secure = false) {
    IndicationDestination record{};
    std::memcpy(record.Host, host.data(), std::min(host.size(), sizeof record.Host));
    std::memcpy(record.Uri, uri.data(), std::min(uri.size(), sizeof record.Uri));
    record.Port = port;
    record.Secure = secure;
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

class IndicationCommands : public LinkedFixture {
  protected:
    static constexpr char kHost[] = "127.0.0.1";
    static constexpr char kNotPosted[] = "Not Posting Indication Alert";

    void SetUp() override {
        LinkedFixture::SetUp();
        Start(50);
    }
    void Subscribe(const AlertConsole& console, bool secure = false) {
        firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE,
                      DestinationRecord(kHost, console.Port(), "/events", secure));
    }
    void Unsubscribe() {
        firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE, DestinationRecord("console.example", 1, ""));
    }
    void Alert(const std::string& text) { firmware.Send(MPM_ZEL_CMD_INDICATION_EVENT, text); }
    static std::vector<std::string> BodiesOf(const AlertConsole& console) {
        std::vector<std::string> bodies;
        for (const std::string& request : console.Requests())
            bodies.push_back(AlertConsole::BodyOf(request));
        return bodies;
    }
    const IndicationDestination& Stored() const { return service->m_indications.m_indicationDestination; }
    using Bodies = std::vector<std::string>;
};

}  // namespace

TEST_F(IndicationCommands, AnAlertGoesToTheSubscribedConsole) {
    const AlertConsole console;
    Subscribe(console);
    Alert("<alert/>");
    ASSERT_TRUE(console.AwaitRequests(1));
    AwaitHandled();
    EXPECT_EQ(BodiesOf(console), Bodies{"<alert/>"});
    ExpectLogInOrder({"ProcessRead: Indication subscribe command received: MPM_ZEL_CMD_INDICATION_SUBSCRIBE",
                      "Attempting Indication Subscribe. Send size is 2060",
                      "URI is defined, so subscribing to 127.0.0.1",
                      "ProcessRead: Indication event command received: MPM_ZEL_CMD_INDICATION_EVENT",
                      "Attempting Indication Event", "Posting Indication Alert"});
    for (const char* line :
         {"Attempting Indication Subscribe. Send size is 2060", "URI is defined, so subscribing to 127.0.0.1",
          "Attempting Indication Event", "Posting Indication Alert"})
        EXPECT_TRUE(HasLine("INFO", line)) << line;
}

TEST_F(IndicationCommands, ASecureDestinationIsReachedByTls) {
    const AlertConsole console(AlertConsole::Certificate::SelfSigned);
    Subscribe(console, true);
    Alert("<alert/>");
    ASSERT_TRUE(console.AwaitRequests(1));
    EXPECT_EQ(BodiesOf(console), Bodies{"<alert/>"});
}

TEST_F(IndicationCommands, AnyValueButZeroMeansTls) {
    const AlertConsole console(AlertConsole::Certificate::SelfSigned);
    std::string record = DestinationRecord(kHost, console.Port(), "/events");
    record[offsetof(IndicationDestination, Secure) + 3] = 1;
    firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE, record);
    Alert("<alert/>");
    EXPECT_TRUE(console.AwaitRequests(1));
}

TEST_F(IndicationCommands, WithoutASubscriptionNothingIsPosted) {
    Alert("<alert/>");
    AwaitLog(kNotPosted);
    EXPECT_TRUE(HasLine("INFO", kNotPosted));
    EXPECT_EQ(Gate().Count("WinHttpOpen"), 0u);
}

TEST_F(IndicationCommands, AnEmptyUriEndsTheSubscription) {
    const AlertConsole console;
    Subscribe(console);
    Unsubscribe();
    Alert("<alert/>");
    AwaitLog(kNotPosted);
    EXPECT_EQ(console.Connections(), 0u);
    EXPECT_TRUE(HasLine("INFO", "URI is empty, so unsubscribing"));
    EXPECT_EQ(LogCount("Posting Indication Alert"), 1u);
    // What was stored stays.
    EXPECT_STREQ(Stored().Host, kHost);
    EXPECT_EQ(Stored().Port, console.Port());
}

TEST_F(IndicationCommands, AnEmptyPayloadEndsTheSubscriptionToo) {
    const AlertConsole console;
    Subscribe(console);
    firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE);
    AwaitHandled();
    EXPECT_TRUE(HasLine("INFO", "Attempting Indication Subscribe. Send size is 0"));
    EXPECT_EQ(service->m_indications.m_bIndicationSubscribed, 0);
}

TEST_F(IndicationCommands, ALaterDestinationReplacesTheEarlierOne) {
    const AlertConsole first, second;
    Subscribe(first);
    Subscribe(second);
    Alert("<alert/>");
    ASSERT_TRUE(second.AwaitRequests(1));
    EXPECT_EQ(first.Connections(), 0u);
}

TEST_F(IndicationCommands, AShortRecordReplacesItsOwnBytes) {
    const AlertConsole console;
    Subscribe(console);
    firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE,
                  DestinationRecord("localhost", 1, "/other").substr(0, 1040));
    AwaitHandled();
    EXPECT_STREQ(Stored().Host, "localhost");
    EXPECT_EQ(Stored().Port, console.Port());
}

TEST_F(IndicationCommands, ALongRecordIsCut) {
    const AlertConsole console;
    firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE,
                  DestinationRecord(kHost, console.Port(), "/events") + std::string(50'000, 'x'));
    Alert("<alert/>");
    EXPECT_TRUE(console.AwaitRequests(1));
}

TEST_F(IndicationCommands, FieldsWithoutATerminatorEndWithTheField) {
    firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE,
                  DestinationRecord(std::string(1024, 'h'), 1, std::string(1024, 'u')));
    Alert("<alert/>");
    AwaitHandled();
    EXPECT_EQ(LogCount("Posting Indication Alert"), 1u);
    EXPECT_EQ(LogCount("HttpsWebRequestPost: "), 1u);
}

TEST_F(IndicationCommands, AnAlertEndsAtItsFirstZero) {
    const AlertConsole console;
    Subscribe(console);
    Alert(std::string("<alert/>\0<rest/>", 16));
    ASSERT_TRUE(console.AwaitRequests(1));
    EXPECT_EQ(BodiesOf(console), Bodies{"<alert/>"});
}

TEST_F(IndicationCommands, AnEmptyAlertIsDropped) {
    const AlertConsole console;
    Subscribe(console);
    Alert("");
    AwaitHandled();
    EXPECT_EQ(LogCount("Attempting Indication Event"), 0u);
}

TEST_F(IndicationCommands, AFloodOfAlertsArrivesInOrder) {
    const AlertConsole console;
    Subscribe(console);
    Bodies sent;
    for (int i = 0; i < 200; ++i) {
        sent.push_back("<alert number=\"" + std::to_string(i) + "\"/>");
        Alert(sent.back());
    }
    ASSERT_TRUE(console.AwaitRequests(sent.size()));
    EXPECT_EQ(BodiesOf(console), sent);
}

TEST_F(IndicationCommands, AConsoleThatIsDownStallsTheReadThreadForTenSecondsAndNoLonger) {
    const AlertConsole console(AlertConsole::Certificate::None, AlertConsole::Behaviour::IsFull);
    Subscribe(console);
    Alert("<alert/>");
    firmware.Send(static_cast<MpmCommand>(201));
    ASSERT_TRUE(Clock().AwaitSleeper(10s, kPatience));
    Advance(9999ms);
    EXPECT_EQ(LogCount("Unknown Command received from driver: 0xc9"), 0u);
    Advance(1ms);
    AwaitLog("Unknown Command received from driver: 0xc9");
    ExpectLogInOrder({"WinHttpSendRequest failed, Request not sent, error: 12002", "Unknown Command"});
}
