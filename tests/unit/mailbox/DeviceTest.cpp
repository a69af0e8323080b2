// Finding, opening and closing the mailbox device.
#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"
#include "winhost/io/MailboxDevice.h"

namespace {

constexpr char kNoDevice[] =
    "m_pDeviceInterfaceDetailData is NULL. No device interfaces present, returning ERROR_INVALID_ADDRESS to "
    "the "
    "caller";

// What the list of interfaces holds instead of the device.
struct ListedPaths {
    explicit ListedPaths(std::vector<std::string> paths) {
        winhost::MailboxDevice::Instance().ListInstead(std::move(paths));
    }
    ~ListedPaths() { winhost::MailboxDevice::Instance().ListInstead({}); }
    ListedPaths(const ListedPaths&) = delete;
    ListedPaths& operator=(const ListedPaths&) = delete;
};

class Device : public ServiceFixture {
  protected:
    MailBoxDriverInterface& Mailbox() { return service->m_mailBoxDriverInterface; }
    static size_t OpenHandles() { return winhost::MailboxDevice::Instance().OpenHandles(); }
    // From now on the driver holds the next open until the promise is kept. Returns once it has come.
    struct HeldOpen {
        std::promise<void> entered, leave;
        std::atomic<bool> held{false};
        void Arm() {
            Gate().Ask([this](const std::string& call, const void*) {
                if (call == "CreateFileA" && !held.exchange(true)) {
                    entered.set_value();
                    leave.get_future().wait();
                }
                return 0u;
            });
        }
    };
    // Calls while the driver holds an open; all of them have to return meanwhile.
    void ExpectDuring(HeldOpen& open, const std::function<void()>& calls) {
        open.entered.get_future().wait();
        std::atomic<bool> over{false};
        std::thread caller([&] {
            calls();
            over = true;
        });
        EXPECT_TRUE(Eventually([&] { return over.load(); }, std::chrono::seconds(5)));
        open.leave.set_value();
        caller.join();
    }

    // A cancel may come just before the thread has registered its request or its wait.
    void CancelUntilEnded(std::thread::id thread, size_t requests) {
        EXPECT_TRUE(Eventually([&] {
            Mailbox().CancelRequestsFor(thread);
            return LogCount("dwLastError = 995") >= requests;
        }));
    }
};

}  // namespace

TEST_F(Device, IsFoundAndOpened) {
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
    EXPECT_TRUE(Mailbox().IsOpen());
    EXPECT_TRUE(HasLine("WARN", "SetupDiEnumDeviceInterfaces() API returned: 259"));
    EXPECT_EQ(Messages().back(), "Open MPM Device Success");
    EXPECT_EQ(OpenHandles(), 1u);
}

TEST_F(Device, OpenedTwiceKeepsItsFirstHandle) {
    Mailbox().OpenMPMDevice();
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
    ExpectLogInOrder(
        {"Open MPM Device Success", "Using an existing device handle", "Open MPM Device Success"});
    EXPECT_EQ(OpenHandles(), 1u);
}

TEST_F(Device, AbsentGivesInvalidAddress) {
    ExpectError(kNoDevice);
    firmware.Vanish();
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 487u);
    EXPECT_FALSE(Mailbox().IsOpen());
    EXPECT_TRUE(HasLine("WARN", "SetupDiEnumDeviceInterfaces() API returned: 259"));
}

TEST_F(Device, AListThatCannotBeMadeIsTheAnswer) {
    Gate().FailNth("SetupDiGetClassDevsA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 5u);
    EXPECT_TRUE(HasLine("INFO", "SetupDiGetClassDevs() API failed with error: 5"));
}

TEST_F(Device, AnEnumerationThatFailsOnceIsRepeated) {
    Gate().FailNth("SetupDiEnumDeviceInterfaces", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
    EXPECT_EQ(Gate().Count("SetupDiEnumDeviceInterfaces"), 3u);
}

TEST_F(Device, AnEnumerationThatFailsForEverIsGivenUp) {
    Gate().FailNth("SetupDiEnumDeviceInterfaces", 1, ERROR_GEN_FAILURE, true);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 487u);
    EXPECT_EQ(Gate().Count("SetupDiEnumDeviceInterfaces"), 1000u);
    EXPECT_EQ(Gate().Count("SetupDiDestroyDeviceInfoList"), 1u);
}

TEST_F(Device, ADetailThatCannotBeSizedIsTheAnswer) {
    Gate().FailNth("SetupDiGetDeviceInterfaceDetailA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 5u);
    EXPECT_TRUE(HasLine("INFO", "SetupDiGetDeviceInterfaceDetail() API failed with error: 5"));
    EXPECT_EQ(Gate().Count("SetupDiDestroyDeviceInfoList"), 1u);
}

TEST_F(Device, ADetailWithoutALengthIsABadLength) {
    // The error says that the buffer is too small, but the call returns no length.
    Gate().FailNth("SetupDiGetDeviceInterfaceDetailA", 1, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 24u);
    EXPECT_TRUE(HasLine("INFO",
                        "SetupDiGetDeviceInterfaceDetail() API returned requiredLength: 0, returning error "
                        "ERROR_BAD_LENGTH to the caller"));
}

TEST_F(Device, ADetailThatCannotBeReadIsTheAnswer) {
    ExpectError(kNoDevice);
    Gate().FailNth("SetupDiGetDeviceInterfaceDetailA", 2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 5u);
    EXPECT_TRUE(HasLine("INFO", "SetupDiGetDeviceInterfaceDetail() API failed with error: 5"));
    EXPECT_EQ(Mailbox().GetNewHandleToMPMDevice(), INVALID_HANDLE_VALUE);
}

TEST_F(Device, AnOpenThatFailsIsTheAnswerAndMayBeRepeated) {
    Gate().FailNth("CreateFileA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 5u);
    EXPECT_TRUE(HasLine(
        "INFO", "OpenMPMDevice: CreateFile(\\\\?\\GLOBALROOT\\Device\\000000c8) API failed, with error 5"));
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
}

TEST_F(Device, GivesASecondHandle) {
    Mailbox().OpenMPMDevice();
    const HANDLE second = Mailbox().GetNewHandleToMPMDevice();
    ASSERT_NE(second, INVALID_HANDLE_VALUE);
    EXPECT_EQ(OpenHandles(), 2u);
    CloseHandle(second);
}

TEST_F(Device, IsOpenedWithoutSharing) {
    Mailbox().OpenMPMDevice();
    CloseHandle(Mailbox().GetNewHandleToMPMDevice());
    EXPECT_EQ(ArgumentsOf("CreateFileA", "dwShareMode"), (std::vector<uint32_t>{0, 0}));
}

TEST_F(Device, IsTheLastInterfaceOfTheList) {
    const ListedPaths paths({R"(\\?\root#system#0000#{other})", winhost::MailboxDevice::kPath});
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
    EXPECT_EQ(Gate().Count("SetupDiEnumDeviceInterfaces"), 3u);
}

TEST_F(Device, AnInterfaceWithoutAPathIsAskedForAgainUntilTheSearchIsGivenUp) {
    const ListedPaths paths({""});
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 487u);
    EXPECT_FALSE(Mailbox().IsOpen());
    EXPECT_EQ(Gate().Count("SetupDiEnumDeviceInterfaces"), 1000u);
    EXPECT_TRUE(HasLine("WARN", "SetupDiEnumDeviceInterfaces() gave no usable interface in 1000 attempts"));
    EXPECT_TRUE(ArgumentsOf("CreateFileA", "dwShareMode").empty()) << "a device was opened";
}

TEST_F(Device, HasNoSecondHandleWithoutAPath) {
    {
        const ListedPaths paths({""});
        Mailbox().OpenMPMDevice();
    }
    EXPECT_EQ(Mailbox().GetNewHandleToMPMDevice(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(Messages().back(), "Using an existing device handle");
    EXPECT_TRUE(ArgumentsOf("CreateFileA", "dwShareMode").empty()) << "a device was opened";
}

TEST_F(Device, HasNoSecondHandleBeforeItIsFound) {
    ExpectError(kNoDevice);
    EXPECT_EQ(Mailbox().GetNewHandleToMPMDevice(), INVALID_HANDLE_VALUE);
}

TEST_F(Device, ASecondHandleThatFailsIsAnError) {
    ExpectError(
        "GetNewHandleToMPMDevice: CreateFile(\\\\?\\GLOBALROOT\\Device\\000000c8) API failed, with error 5");
    Mailbox().OpenMPMDevice();
    Gate().FailNth("CreateFileA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Mailbox().GetNewHandleToMPMDevice(), INVALID_HANDLE_VALUE);
}

TEST_F(Device, IsClosedWhileTheDriverHoldsTheOpen) {
    HeldOpen held;
    held.Arm();
    std::thread open([this] { EXPECT_EQ(Mailbox().OpenMPMDevice(), 995u); });
    ExpectDuring(held, [this] {
        Mailbox().CloseMPMDevice();
        CloseHandle(Mailbox().GetNewHandleToMPMDevice());
    });
    open.join();
    EXPECT_FALSE(Mailbox().IsOpen());
    EXPECT_EQ(OpenHandles(), 0u);
    EXPECT_TRUE(HasLine("INFO", "OpenMPMDevice: the device was closed during the open"));
    EXPECT_EQ(LogCount("Open MPM Device Success"), 0u);
    EXPECT_EQ(Mailbox().OpenMPMDevice(), 0u);
}

TEST_F(Device, IsClosedWhileTheDriverHoldsTheSecondOpen) {
    OpenMailbox();
    HeldOpen held;
    held.Arm();
    HANDLE second = INVALID_HANDLE_VALUE;
    std::thread open([&] { second = Mailbox().GetNewHandleToMPMDevice(); });
    ExpectDuring(held, [this] { Mailbox().CloseMPMDevice(); });
    open.join();
    EXPECT_FALSE(Mailbox().IsOpen());
    CloseHandle(second);
}

TEST_F(Device, ClosedItIsOutOfReach) {
    ExpectError("SendIOCtlToDriver: Error Invalid Handle, returning: 6 to the caller");
    OpenMailbox();
    Mailbox().CloseMPMDevice();
    EXPECT_FALSE(Mailbox().IsOpen());
    EXPECT_EQ(OpenHandles(), 0u);
    EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 6u);
    EXPECT_EQ(LogCount("CancelIoEx failed"), 0u);
}

TEST_F(Device, ClosedWithoutEverBeingFoundItIsAnError) {
    ExpectError(kNoDevice);
    Mailbox().CloseMPMDevice();
}

TEST_F(Device, ACancelThatFailsIsToldAndTheHandleIsClosedAllTheSame) {
    OpenMailbox();
    Gate().FailNth("CancelIoEx", 1, ERROR_GEN_FAILURE);
    Mailbox().CloseMPMDevice();
    EXPECT_TRUE(HasLine("INFO", "CancelIoEx failed. Error status 31"));
    EXPECT_EQ(OpenHandles(), 0u);
}

TEST_F(Device, TheCloseEndsPendingRequests) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995",
                  "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = 0x90d, with "
                  "dwLastError = 995"});
    OpenMailbox();
    firmware.Hold("WriteCloseSocketcmd");
    std::thread caller([this] { EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 995u); });
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    Mailbox().CloseMPMDevice();
    caller.join();
}

TEST_F(Device, TheCloseEndsEveryRequestOfManyThreads) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995",
                  "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = 0x90d, with "
                  "dwLastError = 995",
                  "SendIOCtlToDriver: Error Invalid Handle, returning: 6 to the caller"});
    OpenMailbox();
    firmware.Hold("WriteCloseSocketcmd");
    std::vector<std::thread> callers;
    for (int i = 0; i < 8; ++i)
        callers.emplace_back([this] {
            while (Mailbox().WriteCloseSocketcmd(664) != 6) {
            }
        });
    ASSERT_TRUE(firmware.AwaitCount("WriteCloseSocketcmd", 4));
    Mailbox().CloseMPMDevice();
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingRequests(), 0u);
    EXPECT_EQ(winhost::HandleTable::Instance().StaleUses(), 0u);
}

TEST_F(Device, ACancelledRequestLeavesTheDeviceAndTheRequestsOfOtherThreads) {
    ExpectErrors({"with error: 995", "dwLastError = 995"});
    OpenMailbox();
    firmware.Hold("WriteCloseSocketcmd");
    std::thread cancelled([this] { EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 995u); });
    std::thread other([this] { EXPECT_EQ(Mailbox().WriteCloseSocketcmd(22), 0u); });
    ASSERT_TRUE(firmware.AwaitCount("WriteCloseSocketcmd", 2));
    CancelUntilEnded(cancelled.get_id(), 1);
    cancelled.join();
    EXPECT_EQ(Mailbox().WriteZELStatus(1), 0u);
    firmware.Release("WriteCloseSocketcmd");
    other.join();
}

TEST_F(Device, ACancelReachesTheThreadThatAnotherWaitsFor) {
    ExpectErrors({"with error: 995", "dwLastError = 995"});
    OpenMailbox();
    firmware.Hold("WriteCloseSocketcmd");
    std::thread requester([this] { EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 995u); });
    std::thread between([&] {
        const auto waiting = Mailbox().WaitingFor(requester.get_id());
        requester.join();
    });
    std::thread waiter([&] {
        const auto waiting = Mailbox().WaitingFor(between.get_id());
        between.join();
    });
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    CancelUntilEnded(waiter.get_id(), 1);
    waiter.join();
}

TEST_F(Device, ThreadsThatWaitForEachOtherDoNotHoldACancel) {
    std::promise<void> entered, left;
    std::thread other([&] {
        const auto waiting = Mailbox().WaitingFor(std::this_thread::get_id());
        entered.set_value();
        left.get_future().wait();
    });
    entered.get_future().wait();
    Mailbox().CancelRequestsFor(other.get_id());
    left.set_value();
    other.join();
}
