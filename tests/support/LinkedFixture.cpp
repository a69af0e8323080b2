#include "tests/support/LinkedFixture.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <memory>

#include "service/CommandDispatch.h"
#include "winhost/core/HandleTable.h"
#include "winhost/process/ProcessList.h"

namespace fs = std::filesystem;

void LinkedFixture::SetUp() {
    ServiceFixture::SetUp();
    const std::string word = HostPath("C:\\word");
    ASSERT_EQ(mkfifo(word.c_str(), 0600), 0);
    m_word = testbed::Descriptor(open(word.c_str(), O_RDWR | O_CLOEXEC));
}

void LinkedFixture::TearDown() {
    KillPrograms();
    ServiceFixture::TearDown();
    KillPrograms();
}

void LinkedFixture::Start(uint32_t version) {
    firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
    OpenMailbox();
    service->UpdateManageabilityStatus();
    service->SetZELServiceState(1);
    service->m_pMBDriverReadThreadObj = service->m_detachedThreads.StartOwned(
        [service = service.get()] { ReadFromMailBoxDriverThread(service); });
    ASSERT_TRUE(firmware.AwaitHostListening());
}

void LinkedFixture::AwaitHandled() {
    constexpr auto kUnknown = static_cast<MpmCommand>(200);
    constexpr char kAnswer[] = "Unknown Command received from driver: 0xc8";
    const size_t before = LogCount(kAnswer);
    firmware.Send(kUnknown);
    AwaitLog(kAnswer, before + 1);
}

void LinkedFixture::AwaitSilenceAt(const char* request) {
    const auto held = std::make_shared<std::atomic<bool>>(false);
    firmware.Observe([held](const mpm::Event& event) {
        if (event.kind == mpm::Event::Kind::Note && event.name == "held") *held = true;
    });
    firmware.Hold(request);
    ASSERT_TRUE(Eventually([&] { return held->load(); })) << request;
}

void LinkedFixture::AllowErrorsOfAStop() {
    for (const char* text :
         {"Error Service is not signalled as Up, returning: 1062 to the caller",
          "Error Invalid Handle, returning: 6 to the caller", "with error: 995", "with dwLastError = 995",
          "-- Asynchronous SendIOCtlToDriver command failed", "MPM Status return failed",
          "Driver IOCTL failed in function GetCloudCertInfo, with error"})
        AllowError(text);
}

void LinkedFixture::WriteProgram(const std::string& name, const std::string& lines) {
    const fs::path path = HostPath(kBin + name);
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n" << lines << "\n";
    fs::permissions(path, fs::perms::owner_all);
}

std::vector<DWORD> LinkedFixture::IdsOf(const std::string& name) {
    std::vector<DWORD> ids;
    for (const auto& entry : winhost::ListProcesses())
        if (entry.name == name) ids.push_back(entry.id);
    return ids;
}

void LinkedFixture::KillPrograms() {
    EXPECT_TRUE(Eventually([] {
        bool none = true;
        for (const auto& entry : winhost::ListProcesses()) {
            if (entry.described || entry.id == GetCurrentProcessId()) continue;
            kill(static_cast<pid_t>(entry.id), SIGKILL);
            none = false;
        }
        return none;
    }));
}

size_t LinkedFixture::OpenHandles() {
    return winhost::HandleTable::Instance().Size();
}
