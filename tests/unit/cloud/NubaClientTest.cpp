// The start and the end of the cloud client, and its thread in between.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "tests/unit/cloud/CloudFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

constexpr char kSkipped[] = "Not connected over NUBA skipping stopNUBA";
constexpr char kRetrying[] = "Retrying connection to NUBA retrial attempt: ";

class CloudClient : public CloudFixture {
  protected:
    bool EndsByItself() {
        return Eventually([this] { return !Client().IsRunning(); });
    }
    // All attempts, each with its wait.
    void SpendAttempts() {
        for (int attempt = 1; attempt <= 36; ++attempt)
            PassSleepOf(kRetry);
        ASSERT_TRUE(EndsByItself());
    }
    // A connection that is held until deinit.
    void Connect() {
        Provision();
        HoldConnections();
        Client().startNUBA();
        ASSERT_TRUE(AwaitConnections(1));
    }
    // A deinit of the library. The stop calls it only while the thread has not returned, so that the calls of
    // both meet here.
    void AwaitBoth(std::atomic<int>& calls) {
        const int both = (++calls + 1) / 2 * 2;
        EXPECT_TRUE(Eventually([&] { return calls >= both; }));
    }
};

// ---- the start ----

TEST_F(CloudClient, TheStartConfiguresTheLibraryAndRunsIt) {
    Connect();
    EXPECT_TRUE(Client().IsRunning());
    EXPECT_EQ(Script().Calls(),
              (Calls{"InitData_new", "InitData_set_endpoint WINHOST-PC cloud.example.com 4433",
                     R"(InitData_set_cert_file C:\ProgramData\Tarvix\Manageability\certs\cert.pem )"
                     R"(C:\ProgramData\Tarvix\Manageability\certs\key.pem )"
                     R"(C:\ProgramData\Tarvix\Manageability\certs\ca.pem)",
                     "InitData_set_filter", "nuba_setlogger", "nuba_server_init"}));
    ExpectLogInOrder({"Start NUBA from ZEL", "NUBA: MPM Domain list is empty",
                      "Detect cloud server: cloud.example.com",
                      "Attempting connection with: cloud.example.com", "NUBA port UInt8 Array{0, 1}: 81, 17",
                      "NUBA port UInt8 Array{2, 3}: 0, 0", "NUBA port 4433"});
    Client().stopNUBA();
}

TEST_F(CloudClient, ASecondStartOnlyLogs) {
    Connect();
    const Calls before = Script().Calls();
    Client().startNUBA();
    EXPECT_TRUE(HasLine("INFO", "NUBA is already running from ZEL"));
    EXPECT_EQ(LogCount("Start NUBA from ZEL"), 1u);
    EXPECT_EQ(Script().Calls(), before);
    Client().stopNUBA();
}

TEST_F(CloudClient, WithoutItsFileItDoesNotStart) {
    ExpectError(kNoCloudFile);
    InstallLibrary();
    Client().startNUBA();
    EXPECT_TRUE(HasLine("ERROR", kNoCloudFile));
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_TRUE(Script().Calls().empty());
}

TEST_F(CloudClient, ALineEndBehindTheHostLeavesNone) {
    for (const char* text : {"cloud.example.com\n", "cloud.example.com\r\n", "", "a\nb\n"}) {
        ASSERT_TRUE(Client().GetCloudProvisioning());
        Write("cloud.txt", text);
        Client().startNUBA();
        EXPECT_FALSE(Client().IsRunning()) << text;
    }
    EXPECT_EQ(LogCount("Detect cloud server is empty"), 4u);
    EXPECT_TRUE(HasLine("WARN", "Detect cloud server is empty"));
    EXPECT_TRUE(HasLine("INFO", "Detect cloud server: b"));
}

TEST_F(CloudClient, TheLastLineIsTheHost) {
    Provision();
    Write("cloud.txt", "first\nsecond");
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(1));
    EXPECT_EQ(Script().Count("InitData_set_endpoint WINHOST-PC second 4433"), 1u);
    Client().stopNUBA();
}

TEST_F(CloudClient, FilesOfAnEarlierRunAreNotEnough) {
    InstallLibrary();
    Write("cloud.txt", "cloud.example.com");
    Client().startNUBA();
    EXPECT_TRUE(HasLine("WARN", "NUBA Data is not yet read from MPM"));
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_TRUE(Script().Calls().empty());
}

TEST_F(CloudClient, FirmwareThatHasForgottenItsDataHasNoPort) {
    Provision();
    SetCloud([](mpm::CloudSettings& cloud) { cloud = {}; });
    EXPECT_FALSE(Client().GetCloudProvisioning());
    Client().startNUBA();
    EXPECT_TRUE(HasLine("INFO", "NUBA Data is not yet read from MPM"));
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(Script().Calls(), Calls{"InitData_new"});
}

TEST_F(CloudClient, APortBeyond65535IsTheLibrarysToRefuse) {
    SetCloud([](mpm::CloudSettings& cloud) { cloud.Port = 70000; });
    Provision();
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(1));
    EXPECT_EQ(Script().Count("InitData_set_endpoint WINHOST-PC cloud.example.com 70000"), 1u);
    ExpectLogInOrder(
        {"NUBA port UInt8 Array{0, 1}: 112, 17", "NUBA port UInt8 Array{2, 3}: 1, 0", "NUBA port 70000"});
    Client().stopNUBA();
}

TEST_F(CloudClient, InTheCompanysNetworkItStaysDown) {
    SetDomains("corp.example.com");
    InstallLibrary();
    Client().SetupCloudServer();
    Pc().Change([](auto& pc) { SetSuffix(pc, pc.adapters->front().name, "corp.example.com"); });
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_TRUE(HasLine("INFO", "NUBA: Domain corp.example.com matches with MPM Domain corp.example.com"));
    EXPECT_EQ(LogCount("Detect cloud server"), 0u);
    // Older firmware does not compare.
    service->m_vorkVersion = 39;
    Client().startNUBA();
    EXPECT_TRUE(AwaitConnections(1));
    Client().stopNUBA();
}

TEST_F(CloudClient, OnceTheServiceIsDownItDoesNotStart) {
    Provision();
    service->m_mailBoxDriverInterface.m_bServiceUp = 0;
    Client().startNUBA();
    EXPECT_TRUE(HasLine("INFO", "NUBA is not started, the service is down"));
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    service->m_bServiceStopping = 1;
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_TRUE(Script().Calls().empty());
}

TEST_F(CloudClient, AThreadThatCannotBeStartedLeavesItIdle) {
    ExpectError("NUBA thread cannot be started: ");
    Provision();
    Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY);
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    Client().startNUBA();
    EXPECT_TRUE(AwaitConnections(1));
    Client().stopNUBA();
}

TEST_F(CloudClient, WithoutAConfigurationItStaysIdle) {
    ExpectError("InitData_new failed");
    Provision();
    {
        const std::lock_guard lock(Script().mutex);
        Script().returnsNull = true;
    }
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(Script().Calls(), Calls{"InitData_new"});
}

// ---- the attempts ----

TEST_F(CloudClient, ItGivesUpAfter36Attempts) {
    Provision();
    const auto begin = Clock().Steady();
    Client().startNUBA();
    SpendAttempts();
    EXPECT_EQ(Script().Count("nuba_server_init"), 36u);
    EXPECT_EQ(Clock().Steady() - begin, 36 * kRetry);
    EXPECT_EQ(LogCount(kRetrying), 36u);
    EXPECT_TRUE(HasLine("INFO", "Retrying connection to NUBA retrial attempt: 36"));
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 0u);
    // A stop finds it idle.
    Client().stopNUBA();
    EXPECT_TRUE(HasLine("INFO", kSkipped));
}

TEST_F(CloudClient, AfterTheLastAttemptANewStartBeginsAnew) {
    Provision();
    Client().startNUBA();
    SpendAttempts();
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(37));
    EXPECT_TRUE(Client().IsRunning());
    EXPECT_EQ(Script().LiveObjects(), 1u);
    Client().stopNUBA();
}

TEST_F(CloudClient, AConnectionThatEndsIsMadeAgainFiveSecondsLater) {
    Connect();
    Advance(600s);
    EndConnection();
    PassSleepOf(kRetry);
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_TRUE(HasLine("INFO", "Retrying connection to NUBA retrial attempt: 1"));
    Client().stopNUBA();
}

TEST_F(CloudClient, AWaitThatFailsEndsTheThread) {
    Provision();
    // The log waits too, and so do other threads.
    std::atomic<bool> isNext{false};
    std::atomic<std::thread::id> client;
    Script().WhileConnected([&] {
        client = std::this_thread::get_id();
        isNext = true;
    });
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        const bool fails = call == "WaitForSingleObject" && std::this_thread::get_id() == client;
        return fails && isNext.exchange(false) ? DWORD{ERROR_INVALID_HANDLE} : DWORD{ERROR_SUCCESS};
    });
    Client().startNUBA();
    ASSERT_TRUE(EndsByItself());
    EXPECT_TRUE(HasLine("INFO", "WaitForSingleObject failed"));
    EXPECT_EQ(Script().Count("nuba_server_init"), 1u);
}

// ---- the stop ----

TEST_F(CloudClient, AStopOfAnIdleClientOnlyLogs) {
    Client().stopNUBA();
    EXPECT_TRUE(HasLine("INFO", kSkipped));
    EXPECT_EQ(LogCount("Attempting to deinit NUBA"), 0u);
}

TEST_F(CloudClient, AStopEndsTheConnection) {
    Connect();
    Client().stopNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 1u);
    EXPECT_EQ(Script().LiveObjects(), 0u);
    ExpectLogInOrder({"Attempting to deinit NUBA", "Waiting for NUBA thread",
                      "NUBA Thread stopped gracefully", "stop NUBA"});
}

TEST_F(CloudClient, AStopBetweenTwoAttemptsTakesNoTime) {
    Provision();
    std::atomic<int> calls{0};
    Script().OnDeinit([&] { AwaitBoth(calls); });
    Client().startNUBA();
    ASSERT_TRUE(Clock().AwaitSleeper(kRetry));
    const auto before = Clock().Steady();
    Client().stopNUBA();
    EXPECT_EQ(Clock().Steady(), before);
    AwaitLog("NUBA Thread exiting");
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 2u);
    EXPECT_EQ(Script().Count("nuba_server_init"), 1u);
}

TEST_F(CloudClient, ItStartsAgainAfterAStop) {
    Connect();
    Client().stopNUBA();
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_TRUE(Client().IsRunning());
    Client().stopNUBA();
    EXPECT_FALSE(Client().IsRunning());
}

TEST_F(CloudClient, HundredsOfStartsAndStopsLeaveNothing) {
    Connect();
    Client().stopNUBA();
    const size_t handles = winhost::HandleTable::Instance().Size();
    for (size_t i = 2; i <= 300; ++i) {
        Client().startNUBA();
        ASSERT_TRUE(AwaitConnections(i));
        Client().stopNUBA();
    }
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles);
    EXPECT_EQ(Script().LiveObjects(), 0u);
}

TEST_F(CloudClient, AThreadThatDoesNotReturnIsTerminated) {
    Provision();
    const UniqueHandle never(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Script().WhileConnected([&] { WaitForSingleObject(never.Get(), INFINITE); });
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(1));
    InTime([&] { Client().stopNUBA(); });
    EXPECT_FALSE(Client().IsRunning());
    ExpectLogInOrder({"Waiting for NUBA thread", "Terminating NUBA thread", "stop NUBA"});
    EXPECT_EQ(LogCount("NUBA Thread stopped gracefully"), 0u);
    Script().WhileConnected(nullptr);
    Client().startNUBA();
    EXPECT_TRUE(AwaitConnections(2));
    Client().stopNUBA();
}

TEST_F(CloudClient, ADeinitThatDoesNotReturnIsTerminatedToo) {
    Provision();
    const UniqueHandle never(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    const auto hang = [&] { WaitForSingleObject(never.Get(), INFINITE); };
    Script().WhileConnected(hang);
    Script().OnDeinit(hang);
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(1));
    const auto before = Clock().Steady();
    InTime([&] { Client().stopNUBA(); });
    EXPECT_LT(Clock().Steady() - before, 8s);
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_TRUE(HasLine("WARN", "nuba_server_deinit does not return, its thread is terminated"));
    EXPECT_TRUE(HasLine("INFO", "Terminating NUBA thread"));
}

TEST_F(CloudClient, ADeinitThatThrowsEndsNothingElse) {
    ExpectErrors({"nuba_server_deinit of the library", "Unknown error in nuba_server_deinit"});
    Provision();
    std::atomic<int> calls{0};
    for (const bool isException : {true, false}) {
        Script().OnDeinit([&, isException] {
            AwaitBoth(calls);
            if (isException) throw std::runtime_error("of the library");
            throw 5;
        });
        Client().startNUBA();
        ASSERT_TRUE(Clock().AwaitSleeper(kRetry));
        Client().stopNUBA();
        EXPECT_FALSE(Client().IsRunning());
    }
    // By the stop and by the thread, which may write its lines after the stop has returned.
    for (const char* text : {"nuba_server_deinit of the library", "Unknown error in nuba_server_deinit",
                             "NUBA Thread stopped gracefully"})
        AwaitLog(text, 2);
    EXPECT_EQ(LogCount("nuba_server_deinit of the library"), 2u);
    EXPECT_EQ(LogCount("Unknown error in nuba_server_deinit"), 2u);
    EXPECT_EQ(LogCount("NUBA Thread stopped gracefully"), 2u);
}

// Its data has stopped being complete, which makes it count as idle.
TEST_F(CloudClient, AThreadThatStillRunsIsEndedByTheNextStart) {
    Connect();
    Client().SetupCloudServer();
    EXPECT_FALSE(Client().IsRunning());
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 1u);
    EXPECT_EQ(Script().LiveObjects(), 1u);
    Client().stopNUBA();
}

TEST_F(CloudClient, TheEndOfTheProcessEndsTheConnection) {
    Connect();
    EXPECT_TRUE(service->EndThreads(3000));
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 1u);
    EXPECT_FALSE(Client().IsRunning());
}

TEST_F(CloudClient, StartsAndStopsOfSeveralThreadsDoNotMeet) {
    Provision();
    HoldConnections();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this, i] {
            for (int round = 0; round < 25; ++round) {
                if (i % 2)
                    Client().startNUBA();
                else
                    Client().stopNUBA();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    Client().stopNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(Script().LiveObjects(), 0u);
    EXPECT_EQ(Script().Count("InitData_new"), Script().Count("InitData_delete"));
}

}  // namespace
