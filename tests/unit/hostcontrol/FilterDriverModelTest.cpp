// The rule: the driver runs exactly while the connection is wireless, the platform is provisioned, and the
// system has Modern Standby. Every order of these is compared with a model of a few lines.
#include "tests/support/DriverPc.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

// One network change, before which the system may have gained or lost Modern Standby.
struct Picture {
    bool wireless, provisioned, standby;
};

Picture PictureOf(unsigned number) {
    return {(number & 1) != 0, (number & 2) != 0, (number & 4) != 0};
}

class FilterDriverModel : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        // The binding has tests of its own; without a process for each change the sequences take no time.
        Gate().FailNth("system", 1, 12, true);
        AllowError("Failed to enable network binding via PowerShell.");
        AllowError("Failed to disable network binding via PowerShell.");
    }

    void SetStandby(bool standby) {
        Pc().Change([=](auto& pc) { pc.modernStandby = standby; });
        service->m_filterDriver.CheckFilterDriverSupport();
    }
    void Show(const Picture& picture) {
        if (service->m_filterDriver.m_supportsS0 != uint8_t{picture.standby}) SetStandby(picture.standby);
        service->m_filterDriver.UpdateFilterDriver(picture.wireless, picture.provisioned);
    }
    // As at the start of a service, the driver being off.
    void Begin() {
        driverpc::Install(driverpc::Driver());
        service->m_filterDriver.m_supportsS0 = 0;
        service->m_filterDriver.m_filterDriverEnabled = 0;
    }
};

}  // namespace

TEST_F(FilterDriverModel, TheDriverRunsExactlyWhileItIsWanted) {
    constexpr unsigned kPictures = 8, kLength = 4;
    unsigned sequences = 1;
    for (unsigned i = 0; i < kLength; ++i)
        sequences *= kPictures;
    const size_t handles = winhost::HandleTable::Instance().Size();
    for (unsigned sequence = 0; sequence < sequences; ++sequence) {
        Begin();
        for (unsigned step = 0, rest = sequence; step < kLength; ++step, rest /= kPictures) {
            const Picture picture = PictureOf(rest % kPictures);
            Show(picture);
            const bool wanted = picture.wireless && picture.provisioned && picture.standby;
            ASSERT_EQ(driverpc::Runs(), wanted) << "sequence " << sequence << " step " << step;
            ASSERT_EQ(service->m_filterDriver.m_filterDriverEnabled != 0, wanted);
        }
    }
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles);
}

// Each change of what is wanted costs one start or one stop, and a picture that stays costs nothing.
TEST_F(FilterDriverModel, NothingIsDoneTwice) {
    Begin();
    const Picture on{true, true, true}, off{true, false, true};
    for (const Picture& picture : {on, on, on, off, off, on, off, off})
        Show(picture);
    EXPECT_EQ(driverpc::Actions(),
              (std::vector<std::string>{"start", "stop", "stopped", "start type 4", "start type 3", "start",
                                        "stop", "stopped", "start type 4"}));
    EXPECT_EQ(LogCount("Filter driver enable successfully"), 2u);
    EXPECT_EQ(LogCount("Filter driver disable successfully"), 2u);
}

// Whichever call refuses, the next change tries again, and the flag says what the service step has reached.
TEST_F(FilterDriverModel, EveryRefusalIsTriedAgainWithTheNextChange) {
    AllowError("Failed to ");
    AllowError("Driver did not stop in time.");
    // A driver that has not been asked to stop costs the whole poll.
    Clock().SetManual(false);
    Clock().SetRate(1000);
    const Picture on{true, true, true}, off{false, true, true};
    for (const char* call : {"OpenSCManagerA", "OpenServiceA", "ChangeServiceConfigA", "StartServiceA",
                             "QueryServiceStatus", "ControlService"}) {
        Begin();
        Pc().Change([](auto& pc) { pc.services[0].startType = 4; });
        SetStandby(true);
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        Show(on);
        Show(on);
        EXPECT_TRUE(driverpc::Runs()) << call;
        EXPECT_EQ(service->m_filterDriver.m_filterDriverEnabled, 1) << call;
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        Show(off);
        Show(off);
        EXPECT_FALSE(driverpc::Runs()) << call;
        EXPECT_EQ(service->m_filterDriver.m_filterDriverEnabled, 0) << call;
    }
}

TEST_F(FilterDriverModel, AStoppingServiceTurnsNothingOn) {
    Begin();
    SetStandby(true);
    service->SignalStop();
    service->m_filterDriver.UpdateFilterDriver(true, true);
    EXPECT_FALSE(driverpc::Runs());
}
