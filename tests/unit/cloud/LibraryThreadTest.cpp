// Threads in the cloud library that the service cannot terminate. It leaves them, and goes on without them.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <iterator>
#include <set>
#include <utility>

#include "base/LibraryFunction.h"
#include "tests/unit/cloud/CloudFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kLeft[] = "NUBA thread does not end and is left";
constexpr char kGraceful[] = "NUBA Thread stopped gracefully";

class LeftThread : public CloudFixture {
  protected:
    void SetUp() override {
        CloudFixture::SetUp();
        Provision();
    }
    void TearDown() override {
        LetGo();
        FreeConfigurations();
        CloudFixture::TearDown();
    }
    // Blocks until LetGo. A termination has no effect meanwhile.
    void Stay() const { m_goesOn.wait(); }
    void LetGo() {
        if (!std::exchange(m_hasLetGo, true)) m_letGo.set_value();
    }
    static size_t Threads() {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
    }
    void ConnectAndStop() {
        Client().startNUBA();
        ASSERT_TRUE(AwaitConnections(1));
        InTime([this] { Client().stopNUBA(); });
        EXPECT_FALSE(Client().IsRunning());
    }
    // The next connection is as any other, also when the thread that was left goes on during it.
    void ExpectUndisturbedConnection() {
        const size_t graceful = LogCount(kGraceful), terminated = LogCount("Terminating NUBA thread");
        HoldConnectionsThatEndSlowly();
        Client().startNUBA();
        ASSERT_TRUE(AwaitConnections(2));
        const size_t threads = Threads();
        LetGo();
        EXPECT_TRUE(Eventually([=] { return Threads() < threads; }));
        EXPECT_TRUE(Client().IsRunning());
        InTime([this] { Client().stopNUBA(); });
        EXPECT_EQ(LogCount(kGraceful), graceful + 1);
        EXPECT_EQ(LogCount("Terminating NUBA thread"), terminated);
    }

  private:
    // The stop has to wait for the end of each.
    void HoldConnectionsThatEndSlowly() {
        HoldConnections();
        std::function<void()> hold;
        {
            const std::lock_guard lock(Script().mutex);
            hold = Script().whileConnected;
        }
        Script().WhileConnected([hold] {
            hold();
            Sleep(1000);
        });
    }
    // The service does not free what a thread that is left may still use.
    void FreeConfigurations() {
        std::set<const InitData*> left;
        {
            const std::lock_guard lock(Script().mutex);
            left = Script().objects;
        }
        const auto free =
            LibraryFunction<InitDataDelete_Fn>(GetModuleHandleA("nubaapi.dll"), "InitData_delete");
        for (const InitData* data : left)
            free(const_cast<InitData*>(data));
    }

    std::promise<void> m_letGo;
    std::shared_future<void> m_goesOn = m_letGo.get_future().share();
    bool m_hasLetGo = false;
};

}  // namespace

TEST_F(LeftThread, HasNoHandleByWhichItCouldBeTerminated) {
    Gate().FailNth("OpenThread", 1, ERROR_ACCESS_DENIED);
    Script().WhileConnected([this] { Stay(); });
    ConnectAndStop();
    EXPECT_TRUE(HasLine("WARN", "NubaClientThread: OpenThread failed with error: 5"));
    EXPECT_TRUE(HasLine("WARN", kLeft));
    EXPECT_EQ(Script().Count("InitData_delete"), 0u) << "the thread still uses it";
    EXPECT_EQ(Gate().Count("TerminateThread"), 0u);
    ExpectUndisturbedConnection();
}

TEST_F(LeftThread, IsInTheFilterOfTheService) {
    std::atomic<std::thread::id> client;
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        if (call == "gethostname" && std::this_thread::get_id() == client) Stay();
        return ERROR_SUCCESS;
    });
    Script().WhileConnected([&] {
        client = std::this_thread::get_id();
        const Endpoint endpoint{"WINHOST-PC", "664"};
        Script().filter(nullptr, &endpoint);
    });
    ConnectAndStop();
    EXPECT_TRUE(HasLine("WARN", kLeft));
    ExpectUndisturbedConnection();
}

TEST_F(LeftThread, CallsDeinitForALibraryThatHasEndedTheConnection) {
    std::promise<void> asked;
    Script().WhileConnected([&] { asked.get_future().wait(); });
    Script().OnDeinit([&] {
        asked.set_value();
        Stay();
    });
    Client().startNUBA();
    ASSERT_TRUE(AwaitConnections(1));
    Gate().FailNth("OpenThread", 1, ERROR_ACCESS_DENIED);
    InTime([this] { Client().stopNUBA(); });
    EXPECT_TRUE(HasLine("WARN", "nuba_server_deinit does not return, its thread is terminated"));
    EXPECT_EQ(LogCount(kGraceful), 1u);
    EXPECT_EQ(Script().Count("InitData_delete"), 0u) << "the thread still uses it";
    ExpectUndisturbedConnection();
}
