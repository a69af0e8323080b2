// The service from its start to its stop while one call of the platform fails: once, or from then on for
// ever. Whatever fails, it must not crash nor hang, and where it started it must stop in good order.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <thread>

#include "tests/support/ServiceFixture.h"
#include "winhost/service/Scm.h"

namespace {

using namespace std::chrono_literals;

class Run : public ServiceFixture {
  public:
    // Answers the names of the calls that the run made.
    std::set<std::string> Execute(const std::string& failingCall, bool forEver) {
        SetUp();
        AllowError("");  // which line a failure has is the affair of the call's own tests
        Gate().Reset();
        if (!failingCall.empty()) Gate().FailNth(failingCall, 1, ERROR_GEN_FAILURE, forEver);
        std::thread main([this] {
            char program[] = "ZELService.exe", argument[] = "-service";
            char* argv[] = {program, argument, nullptr};
            EXPECT_EQ(service->Main(2, argv), 0);
            m_over = true;
        });
        std::thread time([this] {
            while (!m_over)
                if (Clock().AwaitSleepers(1, 1ms)) Advance(100ms);
        });
        StopOnceStarted();
        main.join();
        time.join();
        const std::set<std::string> called = Gate().Called();
        TearDown();
        return called;
    }

  private:
    void TestBody() override {}

    void StopOnceStarted() {
        auto& scm = winhost::Scm::Instance();
        EXPECT_TRUE(Eventually([&] {
            return m_over || scm.AwaitState(SERVICE_RUNNING, 1ms) || scm.AwaitState(SERVICE_STOPPED, 0ms);
        })) << "neither started nor refused";
        if (m_over || scm.AwaitState(SERVICE_STOPPED, 0ms)) return;
        // As far as it comes with what fails.
        firmware.AwaitRequest("WriteMultiNwInfo", nullptr, 100ms);
        EXPECT_EQ(scm.Control(SERVICE_CONTROL_STOP), DWORD{NO_ERROR});
        EXPECT_TRUE(scm.AwaitState(SERVICE_STOPPED));
    }

    std::atomic<bool> m_over{false};
};

std::set<std::string> Execute(const std::string& failingCall, bool forEver) {
    // A run that hangs is ended from outside, and this is what it leaves.
    std::printf("%s %s\n", failingCall.c_str(), forEver ? "for ever" : "once");
    std::fflush(stdout);
    SCOPED_TRACE(failingCall);
    return Run().Execute(failingCall, forEver);
}

void Sweep(bool forEver) {
    const std::set<std::string> calls = Execute("", false);
    EXPECT_GT(calls.size(), 40u) << "the service makes more different calls than that";
    for (const std::string& call : calls) {
        // An SCM that never hears of the service sends it no control.
        const bool isHopeless = forEver && call == "SetServiceStatus";
        if (!isHopeless && !winhost::Gate::FailsForNobody(call)) Execute(call, forEver);
    }
}

}  // namespace

TEST(FaultSweep, EachCallMayFailOnce) {
    Sweep(false);
}

TEST(FaultSweep, EachCallMayFailForEver) {
    Sweep(true);
}
