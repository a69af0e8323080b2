// What the cloud library may write to the log, and which targets it may reach.
#include <gtest/gtest.h>

#include "tests/unit/cloud/CloudFixture.h"

namespace {

class NubaCallbacks : public CloudFixture {
  protected:
    void SetUp() override {
        CloudFixture::SetUp();
        Provision();
        HoldConnections();
        Client().startNUBA();
        ASSERT_TRUE(AwaitConnections(1));
    }
    void TearDown() override {
        Client().stopNUBA();
        CloudFixture::TearDown();
    }
    bool Allows(const char* host, const char* port) {
        const Endpoint endpoint{host, port};
        return Script().filter(nullptr, &endpoint);
    }
};

TEST_F(NubaCallbacks, OnlyTheTwoPortsOfThisHostAreReachable) {
    EXPECT_TRUE(Allows("WINHOST-PC", "664"));
    EXPECT_TRUE(Allows("WINHOST-PC", "22"));
    EXPECT_TRUE(Allows("winhost-pc", "664"));
    // As the C runtime reads a number.
    EXPECT_TRUE(Allows("WINHOST-PC", " 664"));
    EXPECT_TRUE(Allows("WINHOST-PC", "22/tcp"));
    for (const char* port : {"0", "", "23", "80", "663", "665", "6640", "-22", "4294967960", "4294967318",
                             "port", "01230", "0x298"})
        EXPECT_FALSE(Allows("WINHOST-PC", port)) << port;
    for (const char* host :
         {"", "WINHOST-P", "WINHOST-PC2", "127.0.0.1", "localhost", "winhost-pc.example.com"})
        EXPECT_FALSE(Allows(host, "664")) << host;
}

TEST_F(NubaCallbacks, AnEndpointWithoutTextsIsRefused) {
    EXPECT_FALSE(Allows(nullptr, "664"));
    EXPECT_FALSE(Allows("WINHOST-PC", nullptr));
    EXPECT_FALSE(Script().filter(nullptr, nullptr));
}

TEST_F(NubaCallbacks, AHostWithoutANameReachesNothing) {
    Gate().FailNth("gethostname", 1, WSAENETDOWN);
    EXPECT_FALSE(Allows("", "664"));
}

TEST_F(NubaCallbacks, ThreeThreadsMayAskAtOnce) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                if (!Allows("WINHOST-PC", "664") || Allows("WINHOST-PC", "80") || Allows("other", "664"))
                    ++wrong;
                Script().logger(2, "from a thread\n");
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(LogCount("nuba: from a thread"), 600u);
}

TEST_F(NubaCallbacks, Level2IsInformationAndEveryOtherOneAnError) {
    ExpectErrors({"nuba: broken", "nuba: worse", "nuba: negative"});
    Script().logger(2, "connected\n");
    Script().logger(1, "broken");
    Script().logger(3, "worse\n\n");
    Script().logger(-1, "negative");
    EXPECT_TRUE(HasLine("INFO", "nuba: connected"));
    EXPECT_TRUE(HasLine("ERROR", "nuba: broken"));
    EXPECT_TRUE(HasLine("ERROR", "nuba: negative"));
}

TEST_F(NubaCallbacks, AnEmptyOrMissingTextIsAnEmptyLine) {
    Script().logger(2, "\n");
    Script().logger(2, "");
    Script().logger(2, nullptr);
    EXPECT_EQ(LogCount("nuba: "), 3u);
}

TEST_F(NubaCallbacks, BothMayBeCalledAfterTheEnd) {
    Client().stopNUBA();
    Script().logger(2, "late");
    EXPECT_TRUE(HasLine("INFO", "nuba: late"));
    EXPECT_TRUE(Allows("WINHOST-PC", "22"));
}

// A thread that is terminated while it holds the log's lock would hold it for ever.
TEST_F(NubaCallbacks, AThreadIsNotTerminatedInsideTheLog) {
    Client().stopNUBA();
    std::atomic<bool> goesOn{true};
    Script().WhileConnected([&] {
        while (goesOn)
            Script().logger(2, "chatter");
        Sleep(INFINITE);
    });
    Script().OnDeinit([&] { goesOn = false; });
    Client().startNUBA();
    AwaitLog("nuba: chatter");
    InTime([&] { Client().stopNUBA(); });
    EXPECT_TRUE(HasLine("INFO", "Terminating NUBA thread"));
    EXPECT_TRUE(HasLine("INFO", "stop NUBA"));
}

}  // namespace
