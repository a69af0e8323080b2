// What the service does with a helper program that delivers a record, and with one that does not.
#include "wifi/DataReader.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/LinkedFixture.h"
#include "wifi/ReaderWatch.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;

constexpr char kWiFiPipe[] = R"(\\.\pipe\WifiPipe)";
constexpr char kBootModePipe[] = R"(\\.\pipe\BootModePipe)";
constexpr char kPath[] = R"(C:\ProgramData\Tarvix\Manageability\WiFiSyncDataReader.exe)";
constexpr char kPrefix[] = "GetValueFromWiFiDataReader: ";
// A program that ends when the test says that its part is over.
constexpr char kUntilDone[] = "until [ -e C:/done ]; do sleep 0.01; done";

class DataReader : public LinkedFixture {
  protected:
    void SetUp() override {
        LinkedFixture::SetUp();
        Clock().SetManual(false);
        m_handles = winhost::HandleTable::Instance().Size();
        std::memset(&m_record, 0xAB, sizeof m_record);
    }
    void TearDown() override {
        if (m_client.joinable()) m_client.join();
        EXPECT_EQ(m_handles, winhost::HandleTable::Instance().Size()) << "a handle is left open";
        LinkedFixture::TearDown();
    }

    static void WriteReader(const std::string& lines) {
        const std::filesystem::path path = HostPath(kPath);
        std::ofstream(path) << "#!/bin/sh\n" << lines << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    // A program that runs until its client's part is over, which a thread of the test plays.
    void PlayReader(const char* pipe, const std::function<void(HANDLE)>& talk) {
        WriteReader(kUntilDone);
        m_client = std::thread([=] {
            const HANDLE client = AwaitPipe(pipe);
            talk(client);
            CloseHandle(client);
            std::ofstream(HostPath("C:\\done"));
        });
    }
    void PlayReaderOf(const char* pipe, const std::string& bytes) {
        PlayReader(pipe, [=](HANDLE client) {
            Write(client, bytes);
            FlushFileBuffers(client);
        });
    }
    static HANDLE AwaitPipe(const char* pipe) {
        HANDLE client = INVALID_HANDLE_VALUE;
        EXPECT_TRUE(Eventually([&] { return (client = Open(pipe)) != INVALID_HANDLE_VALUE; }));
        return client;
    }
    static HANDLE Open(const char* pipe) {
        return CreateFileA(pipe, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    }
    static void Write(HANDLE pipe, const std::string& bytes) {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    }
    static std::string BytesOf(uint32_t bootMode) {
        return std::string(reinterpret_cast<const char*>(&bootMode), sizeof bootMode);
    }
    static WiFiSyncInfo Sample() {
        WiFiSyncInfo sample{};
        sample.size_of_this_structure = sizeof sample;
        sample.is_valid = 1;
        std::strcpy(sample.ssid, "Home");
        sample.channel = 36;
        return sample;
    }
    static std::string BytesOf(const WiFiSyncInfo& record) {
        return std::string(reinterpret_cast<const char*>(&record), sizeof record);
    }

    std::string ReadWiFi() {
        GetValueFromWiFiDataReader(&m_record);
        return BytesOf(m_record);
    }
    static std::string NoRecord() { return std::string(sizeof(WiFiSyncInfo), '\0'); }
    static std::string OnlySize() {
        WiFiSyncInfo empty{};
        empty.size_of_this_structure = sizeof empty;
        return BytesOf(empty);
    }
    void ExpectFailure(const std::string& text) { ExpectError(kPrefix + text); }

  private:
    size_t m_handles = 0;
    WiFiSyncInfo m_record{};
    std::thread m_client;
};

}  // namespace

// ---- the Wi-Fi record ----

TEST_F(DataReader, ReceivesARecord) {
    PlayReaderOf(kWiFiPipe, BytesOf(Sample()));
    EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
    ExpectLogInOrder(
        {std::string(kPrefix) + "Named pipe created: " + kWiFiPipe,
         std::string(kPrefix) + "Launched WiFiSyncDataReader.exe (PID=", std::string(kPrefix) + "Client conn",
         std::string(kPrefix) + "Received Wi-Fi sync data (size=132, is_valid=1)"});
}

TEST_F(DataReader, StartsTheProgramByItsPathAlone) {
    PlayReaderOf(kWiFiPipe, BytesOf(Sample()));
    ReadWiFi();
    const auto launches = Pc().Records<winhost::ProcessLaunch>();
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].commandLine, std::string("\"") + kPath + "\"");
    EXPECT_TRUE(HasLine("INFO", std::string(kPrefix) + "Launched WiFiSyncDataReader.exe (PID=" +
                                    std::to_string(launches[0].pid) + ")"));
}

TEST_F(DataReader, PassesEveryByteOn) {
    const std::string hostile(sizeof(WiFiSyncInfo), '\xFF');
    PlayReaderOf(kWiFiPipe, hostile);
    EXPECT_EQ(ReadWiFi(), hostile);
}

TEST_F(DataReader, EachReadStartsTheProgramAnew) {
    for (int read = 0; read < 2; ++read) {
        std::filesystem::remove(HostPath("C:\\done"));
        std::thread client([] {
            const HANDLE pipe = AwaitPipe(kWiFiPipe);
            Write(pipe, BytesOf(Sample()));
            FlushFileBuffers(pipe);
            CloseHandle(pipe);
            std::ofstream(HostPath("C:\\done"));
        });
        WriteReader(kUntilDone);
        EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
        client.join();
    }
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 2u);
}

TEST_F(DataReader, ReportsANullRecord) {
    ExpectFailure("Null output structure pointer");
    GetValueFromWiFiDataReader(nullptr);
    EXPECT_EQ(Gate().Count("CreateNamedPipeA"), 0u);
}

TEST_F(DataReader, ARecordThatIsAByteTooShortLeavesNothing) {
    ExpectFailure("ReadFile failed or incomplete (bytes=131, error=0)");
    PlayReaderOf(kWiFiPipe, BytesOf(Sample()).substr(0, 131));
    EXPECT_EQ(ReadWiFi(), NoRecord());
}

TEST_F(DataReader, AProgramThatConnectsAndLeavesDeliversNothing) {
    ExpectFailure("ReadFile failed or incomplete (bytes=0, error=109)");
    PlayReader(kWiFiPipe, [this](HANDLE) { AwaitLog("Client conn"); });
    EXPECT_EQ(ReadWiFi(), NoRecord());
}

TEST_F(DataReader, AClientThatIsThereAlreadyIsReadFrom) {
    WriteReader(kUntilDone);
    HANDLE client = INVALID_HANDLE_VALUE;
    Gate().Ask([&](const char* call, const void*) -> uint32_t {
        if (std::string(call) == "ConnectNamedPipe") client = Open(kWiFiPipe);
        if (std::string(call) == "ReadFile" && client != INVALID_HANDLE_VALUE) {
            Write(client, BytesOf(Sample()));
            CloseHandle(std::exchange(client, INVALID_HANDLE_VALUE));
            std::ofstream(HostPath("C:\\done"));
        }
        return 0;
    });
    EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
    Gate().Reset();
    EXPECT_TRUE(HasLine("INFO", std::string(kPrefix) + "Client connected immediately"));
    EXPECT_EQ(LogCount("Client connection established"), 0u);
}

TEST_F(DataReader, WhatAProgramHasWrittenOutlivesIt) {
    PlayReader(kWiFiPipe, [this](HANDLE client) {
        AwaitLog("Client conn");
        Write(client, BytesOf(Sample()));
    });
    // Long enough for the watch to see that the program has ended.
    Gate().Delay("ReadFile", 400ms);
    EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
}

// ---- programs that do not deliver ----

TEST_F(DataReader, AMissingProgramLeavesTheSizeAlone) {
    ExpectFailure(std::string("Failed to launch ") + kPath + ", error 2");
    EXPECT_EQ(ReadWiFi(), OnlySize());
}

TEST_F(DataReader, AProgramThatEndsWithoutAConnectionHoldsNobody) {
    ExpectFailure("ConnectNamedPipe failed, error 995");
    WriteReader("exit 0");
    EXPECT_EQ(ReadWiFi(), OnlySize());
}

TEST_F(DataReader, AProgramThatNeverConnectsIsGivenUpAfterHalfAMinute) {
    ExpectFailure("ConnectNamedPipe failed, error 995");
    WriteReader(kStubborn);
    Clock().SetRate(1000);
    const auto before = Clock().Steady();
    EXPECT_EQ(ReadWiFi(), OnlySize());
    EXPECT_GE(Clock().Steady() - before, std::chrono::milliseconds(ReaderWatch::kPatience));
    EXPECT_EQ(IdsOf("WiFiSyncDataReader.exe").size(), 1u) << "it is left running";
}

TEST_F(DataReader, AProgramThatNeverWritesIsGivenUpTheSame) {
    ExpectFailure("ReadFile failed or incomplete (bytes=0, error=995)");
    PlayReader(kWiFiPipe, [this](HANDLE) {
        Clock().SetRate(1000);
        AwaitLog("ReadFile failed");
    });
    EXPECT_EQ(ReadWiFi(), NoRecord());
}

TEST_F(DataReader, TheStopOfTheServiceEndsTheWait) {
    ExpectFailure("ConnectNamedPipe failed, error 995");
    WriteReader(kStubborn);
    std::thread stop([this] {
        AwaitLog("Launched WiFiSyncDataReader.exe");
        service->SignalStop();
        Clock().SetRate(1000);
    });
    EXPECT_EQ(ReadWiFi(), OnlySize());
    stop.join();
}

TEST_F(DataReader, TheStopOfTheServiceDoesNotWaitForAProgramThatHangs) {
    PlayReader(kWiFiPipe, [this](HANDLE client) {
        Write(client, BytesOf(Sample()));
        AwaitLog("Received Wi-Fi sync data");
        service->SignalStop();
    });
    WriteReader(kStubborn);
    const auto before = Clock().Steady();
    EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
    EXPECT_LT(Clock().Steady() - before, 4s);
    EXPECT_EQ(IdsOf("WiFiSyncDataReader.exe").size(), 1u) << "it is left running";
}

TEST_F(DataReader, AProgramThatHangsAfterItsRecordIsGivenUp) {
    PlayReader(kWiFiPipe, [this](HANDLE client) {
        Write(client, BytesOf(Sample()));
        AwaitLog("Received Wi-Fi sync data");
        Clock().SetRate(1000);
    });
    WriteReader(kStubborn);
    const auto before = Clock().Steady();
    EXPECT_EQ(ReadWiFi(), BytesOf(Sample()));
    EXPECT_GE(Clock().Steady() - before, 5s);
}

TEST_F(DataReader, WithoutAWatchThereIsNoWait) {
    ExpectFailure("ConnectNamedPipe failed, error 8");
    WriteReader("exit 0");
    Gate().FailNth("std::thread", 1, 8);
    EXPECT_EQ(ReadWiFi(), OnlySize());
    ExpectFailure("ConnectNamedPipe failed, error 1450");
    Gate().FailNth("CreateEventA", 1, 1450);
    EXPECT_EQ(ReadWiFi(), OnlySize());
}

TEST_F(DataReader, AFolderThatUsersMayWriteToIsNotTrusted) {
    ExpectFailure(std::string("Failed to launch ") + kPath + ", error 5");
    WriteReader("exit 0");
    service->m_bWorkingFolderSecure = false;
    EXPECT_EQ(ReadWiFi(), OnlySize());
    EXPECT_TRUE(Pc().Records<winhost::ProcessLaunch>().empty());
    service->m_bWorkingFolderSecure = true;
}

TEST_F(DataReader, ASecondReadAtTheSameTimeFails) {
    ExpectFailure("CreateNamedPipe failed, error 231");
    const HANDLE other = CreateNamedPipeA(kWiFiPipe, PIPE_ACCESS_INBOUND, 0, 1, 0, 132, 0, nullptr);
    EXPECT_EQ(ReadWiFi(), OnlySize());
    CloseHandle(other);
}

TEST_F(DataReader, AnyOtherFailureOfTheConnectionIsReported) {
    ExpectFailure("ConnectNamedPipe failed, error 232");
    WriteReader("exit 0");
    Gate().FailNth("ConnectNamedPipe", 1, ERROR_NO_DATA);
    EXPECT_EQ(ReadWiFi(), OnlySize());
    EXPECT_EQ(Gate().Count("ReadFile"), 0u);
}

// ---- the boot mode ----

class BootModes : public DataReader, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(BootModes, AreReceivedAsTheyCome) {
    PlayReaderOf(kBootModePipe, BytesOf(GetParam()));
    EXPECT_EQ(GetBootMode(), GetParam());
    ExpectLogInOrder({std::string("Named pipe created: ") + kBootModePipe,
                      "Launched WiFiSyncDataReader.exe (PID=", "Client conn",
                      "Received Boot Mode data (size=4, boot mode=" + std::to_string(GetParam()) + ")"});
    EXPECT_EQ(LogCount(kPrefix), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, BootModes, ::testing::Values(0, 1, 2, 7, 0xFFFFFFFF));

TEST_F(DataReader, TheBootModesCommandLineHasNoQuotes) {
    PlayReaderOf(kBootModePipe, BytesOf(uint32_t{1}));
    EXPECT_EQ(GetBootMode(), 1u);
    const auto launches = Pc().Records<winhost::ProcessLaunch>();
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].commandLine, std::string(kPath) + " GetBootMode");
}

TEST_F(DataReader, EveryFailureMeansARegularBoot) {
    ExpectErrors({std::string("Failed to launch ") + kPath + ", error 2",
                  "ConnectNamedPipe failed, error 995", "CreateNamedPipe failed, error 5"});
    EXPECT_EQ(GetBootMode(), 0u);
    WriteReader("exit 0");
    EXPECT_EQ(GetBootMode(), 0u);
    Gate().FailNth("CreateNamedPipeA", 1, 5);
    EXPECT_EQ(GetBootMode(), 0u);
    EXPECT_EQ(LogCount(kPrefix), 0u);
}

TEST_F(DataReader, AShortBootModeMeansARegularBoot) {
    ExpectError("ReadFile failed or incomplete (bytes=3, error=0)");
    PlayReaderOf(kBootModePipe, BytesOf(uint32_t{0x020202}).substr(0, 3));
    EXPECT_EQ(GetBootMode(), 0u);
}
