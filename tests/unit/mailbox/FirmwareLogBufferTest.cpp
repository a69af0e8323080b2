// The ring of the firmware's log records: its requests, and its reader on memory that another thread fills.
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

#include "mailbox/FirmwareLogRing.h"
#include "mailbox/Requests.h"
#include "testbed/Descriptor.h"
#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

// The same memory at two addresses: the service's, and the firmware's.
class SharedRing {
  public:
    SharedRing() : m_memory(memfd_create("ring", MFD_CLOEXEC)) {
        EXPECT_EQ(ftruncate(m_memory.Get(), sizeof(FirmwareLogRing)), 0);
        service = Map();
        firmware = Map();
    }
    ~SharedRing() {
        munmap(service, sizeof(FirmwareLogRing));
        munmap(firmware, sizeof(FirmwareLogRing));
    }
    SharedRing(const SharedRing&) = delete;
    SharedRing& operator=(const SharedRing&) = delete;

    // Of the firmware.
    void Put(uint32_t index, const std::string& text) {
        std::memcpy(firmware->records[index], text.c_str(),
                    std::min(text.size() + 1, FirmwareLogRing::kRecordSize));
    }
    void SetWriteIndex(uint32_t index) { std::atomic_ref(firmware->writeIndex) = index; }
    uint32_t ReadIndex() { return std::atomic_ref(firmware->readIndex); }

    FirmwareLogRing* service = nullptr;
    FirmwareLogRing* firmware = nullptr;

  private:
    FirmwareLogRing* Map() {
        void* const address =
            mmap(nullptr, sizeof(FirmwareLogRing), PROT_READ | PROT_WRITE, MAP_SHARED, m_memory.Get(), 0);
        EXPECT_NE(address, MAP_FAILED);
        return static_cast<FirmwareLogRing*>(address);
    }
    testbed::Descriptor m_memory;
};

class FirmwareLog : public ServiceFixture {
  protected:
    void TearDown() override {
        StopReader();
        ServiceFixture::TearDown();
    }
    MailBoxDriverInterface& Mailbox() { return service->m_mailBoxDriverInterface; }
    void OpenDevice() { ASSERT_EQ(Mailbox().OpenMPMDevice(), 0u); }

    void StartReader() {
        Mailbox().m_pLogBuffer = m_ring.service;
        m_reader = std::thread([this] { Mailbox().ReadLogBuffer(service->m_bServiceStopping); });
        AwaitLog("LogBuffer: entry.");
        // Its first act on the ring.
        EXPECT_TRUE(Eventually([this] { return m_ring.ReadIndex() != kUntouched; }));
    }
    void StopReader() {
        if (!m_reader.joinable()) return;
        service->SignalStop();
        Clock().SetManual(false);
        m_reader.join();
    }
    bool AwaitReadIndex(uint32_t index) {
        return Eventually([&] { return m_ring.ReadIndex() == index; });
    }
    // The records that the log has, in order.
    std::vector<std::string> Records() {
        constexpr std::string_view kPrefix = "LogBuffer: record ";
        std::vector<std::string> records;
        for (const std::string& message : Messages())
            if (message.starts_with(kPrefix)) records.push_back(message.substr(kPrefix.size()));
        return records;
    }
    static std::vector<std::string> Numbers(uint32_t begin, uint32_t end) {
        std::vector<std::string> numbers;
        for (uint32_t i = begin; i < end; ++i)
            numbers.push_back(std::to_string(i));
        return numbers;
    }
    void PutNumbers() {
        for (uint32_t i = 0; i < FirmwareLogRing::kRecords; ++i)
            m_ring.Put(i, "record " + std::to_string(i));
    }

    static constexpr uint32_t kUntouched = 1'000'000;
    static constexpr uint32_t kSuccess = 997;
    static constexpr char kBadIndex[] =
        "LogBuffer: Read / write log buffer pointer is pointing to invalid address!!!";
    SharedRing m_ring;
    std::thread m_reader;
};

}  // namespace

TEST_F(FirmwareLog, ItsRequestsSucceedWith997AndPassTheClosedGate) {
    OpenDevice();
    Mailbox().m_pLogBuffer = m_ring.service;
    EXPECT_EQ(Mailbox().m_bServiceUp, 0);
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), kSuccess);
    EXPECT_EQ(Mailbox().m_pLogBuffer, nullptr);
    EXPECT_EQ(Mailbox().DeAllocateLogBuffer(), kSuccess);
    ASSERT_EQ(firmware.Requests().size(), 2u);
    EXPECT_EQ(firmware.Requests()[0].code, 0x9C416448);
    EXPECT_EQ(firmware.Requests()[1].code, 0x9C41644Cu);
    EXPECT_TRUE(firmware.Requests()[0].data.empty());
    EXPECT_TRUE(HasLine("INFO", "LogBuffer: Asynchronous IO completed for AllocateLogBuffer readbytes is 8"));
    EXPECT_TRUE(
        HasLine("INFO", "LogBuffer: Asynchronous IO completed for DeAllocateLogBuffer readbytes is 8"));
    EXPECT_EQ(LogCount("IOCTL_GET_ALLOCATE_LOG_BUFFER ptrBuffer "), 1u);
    Mailbox().CloseMPMDevice();
}

TEST_F(FirmwareLog, AnAnswerWithoutBytesLeavesNoLine) {
    OpenDevice();
    firmware.ResizeAnswer("AllocateLogBuffer", 0);
    Mailbox().m_pLogBuffer = m_ring.service;
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), kSuccess);
    EXPECT_EQ(Mailbox().m_pLogBuffer, m_ring.service);
    EXPECT_EQ(LogCount("LogBuffer: Asynchronous IO completed"), 0u);
    Mailbox().CloseMPMDevice();
}

TEST_F(FirmwareLog, WithoutADeviceThereIsNoRequest) {
    ExpectError("LogBuffer: Invalid Handle");
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), 6u);
    EXPECT_EQ(Mailbox().DeAllocateLogBuffer(), 6u);
    EXPECT_EQ(LogCount("LogBuffer: Invalid Handle"), 2u);
}

TEST_F(FirmwareLog, FailuresAreLoggedWithTheirErrors) {
    OpenDevice();
    for (const char* error :
         {"LogBuffer: Error creating overlapped event for interrupt thread - with error: 8",
          "LogBuffer: Asynchronous AllocateLogBuffer command failed with error: 31",
          "LogBuffer: Asynchronous DeAllocateLogBuffer command failed with error: 31",
          "LogBuffer: GetOverlappedResult failed for AllocateLogBuffer with error: 1117"})
        ExpectError(error);
    Gate().FailNth("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), 8u);
    Gate().FailNth("DeviceIoControl", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), 31u);
    Gate().FailNth("DeviceIoControl", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(Mailbox().DeAllocateLogBuffer(), 31u);
    firmware.Refuse("AllocateLogBuffer", ERROR_IO_DEVICE, 1);
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), 1117u);
    Mailbox().CloseMPMDevice();
}

TEST_F(FirmwareLog, AFailedWaitReturnsTheErrorOfThePendingCall) {
    OpenDevice();
    ExpectError("LogBuffer: WaitForSingleObject unexpected return with error: ");
    firmware.Hold("AllocateLogBuffer");
    // The logger waits for its mutex by the same call, once for the line before the request is waited for.
    Gate().FailNth("WaitForSingleObject", 2, ERROR_INVALID_HANDLE);
    EXPECT_EQ(Mailbox().AllocateLogBuffer(), kSuccess);
    Gate().Reset();
    Mailbox().CloseMPMDevice();
}

TEST_F(FirmwareLog, ACloseOfTheDeviceEndsAPendingRequest) {
    OpenDevice();
    ExpectError("LogBuffer: GetOverlappedResult failed for AllocateLogBuffer with error: 995");
    firmware.Hold("AllocateLogBuffer");
    auto request = std::async(std::launch::async, [this] { return Mailbox().AllocateLogBuffer(); });
    EXPECT_TRUE(firmware.AwaitRequest("AllocateLogBuffer"));
    Mailbox().CloseMPMDevice();
    EXPECT_EQ(request.get(), 995u);
}

TEST_F(FirmwareLog, WithoutARingTheReaderEnds) {
    Mailbox().ReadLogBuffer(service->m_bServiceStopping);
    EXPECT_TRUE(HasLine("INFO", "LogBuffer: entry."));
    EXPECT_TRUE(HasLine("WARN", "LogBuffer: Log Buffer pointer returned NULL. Disabling Log Buffer."));
    EXPECT_EQ(LogCount("LogBuffer: exit."), 0u);
}

TEST_F(FirmwareLog, TheReaderBeginsAtTheStartOfTheRing) {
    PutNumbers();
    m_ring.firmware->readIndex = kUntouched;
    m_ring.SetWriteIndex(3);
    StartReader();
    EXPECT_TRUE(AwaitReadIndex(3));
    m_ring.SetWriteIndex(5);
    EXPECT_TRUE(AwaitReadIndex(5));
    StopReader();
    EXPECT_EQ(Records(), Numbers(0, 5));
    EXPECT_TRUE(HasLine("INFO", "LogBuffer: record 4"));
    EXPECT_EQ(Messages().back(), "LogBuffer: exit.");
}

TEST_F(FirmwareLog, AWrapLeavesOutTheLastRecord) {
    PutNumbers();
    StartReader();
    m_ring.SetWriteIndex(2000);
    EXPECT_TRUE(AwaitReadIndex(2000));
    const size_t before = Records().size();
    m_ring.SetWriteIndex(0);
    EXPECT_TRUE(AwaitReadIndex(0));
    std::vector<std::string> records = Records();
    EXPECT_EQ(std::vector<std::string>(records.begin() + static_cast<long>(before), records.end()),
              Numbers(2000, 2047));
    m_ring.SetWriteIndex(2000);
    EXPECT_TRUE(AwaitReadIndex(2000));
    m_ring.SetWriteIndex(2);
    EXPECT_TRUE(AwaitReadIndex(2));
    records = Records();
    const std::vector<std::string> last(records.end() - 49, records.end());
    EXPECT_EQ(last.front(), "2000");
    EXPECT_EQ(last[46], "2046");
    EXPECT_EQ(last[47], "0");
    EXPECT_EQ(last[48], "1");
}

TEST_F(FirmwareLog, ABadIndexIsLoggedEveryTwoSeconds) {
    ExpectError(kBadIndex);
    ExpectError("LogBuffer: Read pointer is 0x0 write pointer is 0x800");
    PutNumbers();
    m_ring.SetWriteIndex(2048);
    StartReader();
    for (size_t round = 1; round <= 3; ++round) {
        ASSERT_TRUE(Clock().AwaitSleeper(2s, kPatience));
        EXPECT_EQ(LogCount(kBadIndex), round);
        if (round < 3) Advance(2s);
    }
    EXPECT_TRUE(Records().empty());
    m_ring.SetWriteIndex(1);
    Advance(2s);
    EXPECT_TRUE(AwaitReadIndex(1));
    EXPECT_EQ(Records(), Numbers(0, 1));
}

TEST_F(FirmwareLog, ARecordWithoutAnEndRunsIntoTheNextOne) {
    std::memset(m_ring.firmware->records[0], 'x', FirmwareLogRing::kRecordSize);
    m_ring.Put(1, "next");
    m_ring.SetWriteIndex(1);
    StartReader();
    EXPECT_TRUE(AwaitReadIndex(1));
    EXPECT_TRUE(HasLine("INFO", "LogBuffer: " + std::string(128, 'x') + "next"));
}

TEST_F(FirmwareLog, ARingWithoutAnyEndIsReadToItsOwn) {
    std::memset(m_ring.firmware->records, 'x', sizeof m_ring.firmware->records);
    m_ring.SetWriteIndex(2047);
    StartReader();
    EXPECT_TRUE(AwaitReadIndex(2047));
    EXPECT_EQ(LogCount("LogBuffer: xxxx"), 2047u);
}

TEST_F(FirmwareLog, WhatAnotherThreadWritesArrivesOnceAndInOrder) {
    constexpr uint32_t kCount = 5000;
    StartReader();
    std::thread writer([this] {
        uint32_t index = 0;
        for (uint32_t number = 0; number < kCount; ++number) {
            m_ring.Put(index, "record " + std::to_string(number));
            // The record before a wrap would be left out, so that the writer wraps one record early.
            index = index + 1 == FirmwareLogRing::kLastIndex ? 0 : index + 1;
            m_ring.SetWriteIndex(index);
            // It never laps the reader.
            while (number % 500 == 499 && m_ring.ReadIndex() != index)
                std::this_thread::yield();
        }
    });
    writer.join();
    EXPECT_TRUE(Eventually([this] { return Records().size() >= kCount; }));
    EXPECT_EQ(Records(), Numbers(0, kCount));
}
