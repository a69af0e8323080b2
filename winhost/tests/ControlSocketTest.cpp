// The control socket, as another process meets it: one line of JSON each way.
#include <powrprof.h>
#include <winsvc.h>

#include <semaphore>

#include "testbed/ControlSocket.h"
#include "testbed/Json.h"
#include "winhost/power/Privileges.h"
#include "winhost/service/Scm.h"
#include "winhost/tests/PcFixture.h"
#include "winhost/tests/PosixPeer.h"

namespace {

class ControlSocket : public PcFixture {
  protected:
    ControlSocket() {
        StartPc([this](auto& pc) { pc.controlSocket = Path(); });
    }
    std::string Path() const { return (m_root / "control.sock").string(); }

    Json::Value AskLine(PosixPeer& client, const std::string& line) {
        client.Send(line + "\n");
        return testbed::ParseObject(client.ReceiveLine());
    }
    Json::Value Ask(const std::string& line) {
        PosixPeer client = PosixPeer::ConnectToUnix(Path());
        return AskLine(client, line);
    }
    // A command without arguments goes by its name.
    Json::Value Result(const std::string& command) {
        const std::string line = command[0] == '{' ? command : R"({"command": ")" + command + "\"}";
        const Json::Value answer = Ask(line);
        EXPECT_TRUE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["result"];
    }
    std::string Error(const std::string& line) {
        const Json::Value answer = Ask(line);
        EXPECT_FALSE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["error"].asString();
    }
};

DWORD g_control, g_eventType;
std::binary_semaphore* g_holdsHandler;
SERVICE_STATUS_HANDLE g_handle;

void Report(DWORD state) {
    SERVICE_STATUS status{
        SERVICE_WIN32_OWN_PROCESS, state, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_POWEREVENT, 0, 0, 0, 0};
    SetServiceStatus(g_handle, &status);
}

DWORD WINAPI Handler(DWORD control, DWORD eventType, LPVOID, LPVOID) {
    if (g_holdsHandler) g_holdsHandler->acquire();
    g_control = control;
    g_eventType = eventType;
    if (control == SERVICE_CONTROL_STOP) Report(SERVICE_STOPPED);
    return 0;
}

void WINAPI Main(DWORD, LPSTR*) {
    g_handle = RegisterServiceCtrlHandlerExA("", Handler, nullptr);
    Report(SERVICE_RUNNING);
}

// A service that runs under the manager until the test stops it.
class ControlSocketWithService : public ControlSocket {
  protected:
    ControlSocketWithService() {
        static char noName[] = "";
        static const SERVICE_TABLE_ENTRYA table[] = {{noName, Main}, {nullptr, nullptr}};
        m_dispatcher = std::thread([] { EXPECT_TRUE(StartServiceCtrlDispatcherA(table)); });
        EXPECT_TRUE(winhost::Scm::Instance().AwaitState(SERVICE_RUNNING));
    }
    ~ControlSocketWithService() override {
        winhost::Scm::Instance().Control(SERVICE_CONTROL_STOP);
        m_dispatcher.join();
        g_holdsHandler = nullptr;
    }

  private:
    std::thread m_dispatcher;
};

TEST_F(ControlSocket, ABadLineGetsAnErrorAndTheNextOneIsServed) {
    PosixPeer client = PosixPeer::ConnectToUnix(Path());
    for (const char* bad : {"", "nonsense", "[]", "{}", R"({"command": 5})", R"({"command": "status"} x)"}) {
        const Json::Value answer = AskLine(client, bad);
        EXPECT_FALSE(answer["ok"].asBool()) << bad;
        EXPECT_FALSE(answer["error"].asString().empty()) << bad;
    }
    EXPECT_TRUE(AskLine(client, R"({"command": "status"})")["ok"].asBool());
}

TEST_F(ControlSocket, AnUnknownCommandIsNamed) {
    EXPECT_EQ("unknown command \"fly\"; \"help\" lists them", Error(R"({"command": "fly"})"));
}

TEST_F(ControlSocket, ALineWithoutAnEndIsBounded) {
    PosixPeer client = PosixPeer::ConnectToUnix(Path());
    try {
        client.Send(std::string(1 << 22, 'x'));
    } catch (const std::runtime_error&) {
        // The connection may be closed while it is still being filled.
    }
    while (!client.AwaitEnd())
        continue;
    EXPECT_TRUE(Ask(R"({"command": "status"})")["ok"].asBool());
}

TEST_F(ControlSocket, ManyClientsAreServedSideBySide) {
    std::vector<PosixPeer> clients;
    for (int i = 0; i < 20; ++i)
        clients.push_back(PosixPeer::ConnectToUnix(Path()));
    for (PosixPeer& client : clients)
        EXPECT_TRUE(AskLine(client, R"({"command": "status"})")["ok"].asBool());
}

TEST_F(ControlSocket, HelpListsTheCommandsAndTheirArguments) {
    const Json::Value help = Result("help");
    for (const char* name : {"status", "reports", "control", "event-log", "clock advance", "change",
                             "gate fail", "wlan notify", "mailbox", "handles"}) {
        EXPECT_FALSE(help[name]["help"].asString().empty()) << name;
    }
    const Json::Value advance = help["clock advance"]["arguments"];
    ASSERT_EQ(1u, advance.size());
    EXPECT_EQ("milliseconds", advance[0]["name"].asString());
    EXPECT_EQ("number", advance[0]["kind"].asString());
    EXPECT_TRUE(advance[0]["required"].asBool());
}

TEST_F(ControlSocket, BeforeTheFirstReportTheStateIsZero) {
    EXPECT_EQ(0, Result("status")["state"].asInt());
    EXPECT_EQ(0u, Result("reports").size());
}

TEST_F(ControlSocket, AControlToNoServiceIsAnError) {
    EXPECT_EQ("error 1062: no service runs", Error(R"({"command": "control", "code": "stop"})"));
}

TEST_F(ControlSocketWithService, StatusIsTheLastReport) {
    const Json::Value status = Result("status");
    EXPECT_EQ(SERVICE_RUNNING, status["state"].asInt());
    EXPECT_EQ("running", status["stateName"].asString());
    EXPECT_EQ(0x41, status["controlsAccepted"].asInt());
    EXPECT_EQ(1u, Result("reports").size());
}

TEST_F(ControlSocketWithService, ControlsGoByNumberAndByName) {
    Result(R"({"command": "control", "code": 13, "event": 4})");
    EXPECT_EQ(13u, g_control);
    EXPECT_EQ(4u, g_eventType);
    Result(R"({"command": "control", "code": "resume-automatic"})");
    EXPECT_EQ(13u, g_control);
    EXPECT_EQ(18u, g_eventType);
    EXPECT_TRUE(
        Error(R"({"command": "control", "code": "explode"})").starts_with("unknown control \"explode\""));
}

TEST_F(ControlSocketWithService, AnUnacceptedControlIsRefusedUnlessForced) {
    EXPECT_EQ("error 1052: the service does not accept this control",
              Error(R"({"command": "control", "code": 14})"));
    Result(R"({"command": "control", "code": 14, "force": true})");
    EXPECT_EQ(14u, g_control);
}

TEST_F(ControlSocketWithService, AControlIsAnsweredWhenItsHandlerHasReturned) {
    std::binary_semaphore hold(0);
    g_holdsHandler = &hold;
    g_control = 0;
    PosixPeer sender = PosixPeer::ConnectToUnix(Path());
    sender.Send("{\"command\": \"control\", \"code\": \"interrogate\"}\n");
    EXPECT_TRUE(Ask(R"({"command": "status"})")["ok"].asBool()) << "others are served meanwhile";
    hold.release();
    EXPECT_NE(std::string::npos, sender.ReceiveLine().find("delivered"));
    EXPECT_EQ(4u, g_control);
    g_holdsHandler = nullptr;
}

TEST_F(ControlSocket, TheEventLogIsTold) {
    winhost::Pc::Instance().Record(winhost::EventLogEntry{"Source", 1, 0xC0020001, {"a", "b"}});
    const Json::Value log = Result("event-log");
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ(0xC0020001, log[0]["eventId"].asUInt());
    EXPECT_EQ("b", log[0]["strings"][1].asString());
}

TEST_F(ControlSocket, ThePowerActionsAreListed) {
    EXPECT_EQ(Json::Value(Json::arrayValue), Result("power-actions"));
    winhost::EnablePrivilege(winhost::PrivilegeByName("SeShutdownPrivilege"), true);
    ASSERT_TRUE(SetSuspendState(TRUE, TRUE, FALSE));
    const Json::Value list = Result("power-actions");
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ("hibernate", list[0]["action"].asString());
    EXPECT_EQ("SetSuspendState(1, 1, 0)", list[0]["call"].asString());
}

TEST_F(ControlSocket, TheClockMoves) {
    Result(R"({"command": "clock", "action": "manual"})");
    const auto before = Clock().Steady();
    const auto wallBefore = Clock().FileTime();
    Result(R"({"command": "clock", "action": "advance", "milliseconds": 61000})");
    EXPECT_EQ(std::chrono::seconds(61), Clock().Steady() - before);
    Result(R"({"command": "clock", "action": "wall-offset", "milliseconds": -3600000})");
    EXPECT_LT(Clock().FileTime(), wallBefore);
    EXPECT_EQ(std::chrono::seconds(61), Clock().Steady() - before);
    Result(R"({"command": "clock", "action": "running"})");
    EXPECT_TRUE(
        Error(R"({"command": "clock", "action": "advance"})").starts_with("\"milliseconds\" has to be"));
    EXPECT_EQ("unknown action \"stop\"", Error(R"({"command": "clock", "action": "stop"})"));
}

TEST_F(ControlSocket, APatchChangesWhatItNamesAndNullBringsTheDefaultBack) {
    Result(R"({"command": "change", "patch": {"userName": "someone", "connectedFlags": 0}})");
    EXPECT_EQ("someone", Description().userName);
    Result(R"({"command": "change", "patch": {"userName": null}})");
    EXPECT_EQ("SYSTEM", Description().userName);
    EXPECT_EQ(0, Result("description")["connectedFlags"].asInt());
    EXPECT_EQ(m_root.string(), Description().root);
}

TEST_F(ControlSocket, APatchThatIsRefusedChangesNothing) {
    EXPECT_EQ("userNam: unknown key",
              Error(R"({"command": "change", "patch": {"computerName": "OTHER", "userNam": "x"}})"));
    EXPECT_EQ("WINHOST-PC", Description().computerName);
    EXPECT_EQ("root: cannot change while the PC runs",
              Error(R"({"command": "change", "patch": {"root": "/"}})"));
}

TEST_F(ControlSocket, TheGateIsArmedCountedAndReset) {
    Result(R"({"command": "gate", "action": "fail", "call": "GetCurrentProcessId", "n": 3, "error": 5})");
    Result(R"({"command": "gate", "action": "fail", "call": "RegisterEventSourceA", "n": 1, "error": 1722})");
    EXPECT_EQ(1722u, ErrorOf(RegisterEventSourceA(nullptr, "")));
    const Json::Value counted =
        Result(R"({"command": "gate", "action": "count", "call": "RegisterEventSourceA"})");
    EXPECT_EQ(1, counted["calls"].asInt());
    EXPECT_EQ(1, counted["failures"].asInt());
    EXPECT_EQ(0, Result(R"({"command": "gate", "action": "reset"})")["calls"].asInt());
    EXPECT_TRUE(Error(R"({"command": "gate", "action": "fail", "call": "x", "n": 0, "error": 5})")
                    .starts_with("\"n\""));
}

TEST_F(ControlSocket, OpenHandlesAndPendingRequestsAreCounted) {
    const int before = Result("handles")["open"].asInt();
    const HANDLE event = NewEvent();
    EXPECT_EQ(before + 1, Result("handles")["open"].asInt());
    CloseHandle(event);
    EXPECT_EQ(before, Result("handles")["open"].asInt());
    for (const char* count : {"openHandles", "pendingReads", "pendingRequests"})
        EXPECT_EQ(0, Result("mailbox")[count].asInt()) << count;
}

TEST_F(ControlSocket, IsLeftToTheProcessThatListensThere) {
    const auto answer = [](const Json::Value&) { return Json::Value("second"); };
    try {
        testbed::ControlSocket second(Path(), 1000, answer);
        ADD_FAILURE() << "the second one listens";
    } catch (const std::runtime_error& refusal) {
        EXPECT_EQ(refusal.what(), "control socket " + Path() + ": another process listens there");
    }
    EXPECT_FALSE(std::filesystem::exists(Path() + ".new"));
    EXPECT_EQ(0, Result("mailbox")["openHandles"].asInt());
}

TEST_F(ControlSocket, TakesThePlaceOfOneThatWasLeftBehind) {
    StartPc([](auto&) {});
    PosixPeer::LeaveUnixSocketBehind(Path());
    PosixPeer::LeaveUnixSocketBehind(Path() + ".new");
    StartPc([this](auto& pc) { pc.controlSocket = Path(); });
    EXPECT_EQ(0, Result("mailbox")["openHandles"].asInt());
}

TEST_F(ControlSocket, APcWithoutOneClosesTheOldOne) {
    StartPc([](auto&) {});
    EXPECT_FALSE(std::filesystem::exists(Path()));
    EXPECT_THROW(PosixPeer::ConnectToUnix(Path()), std::runtime_error);
}

}  // namespace
