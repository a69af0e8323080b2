#include "tests/support/PcFixture.h"

#include <stdlib.h>

#include <stdexcept>
#include <thread>

#include "tests/support/ConsoleClient.h"
#include "winhost/service/Scm.h"

namespace fs = std::filesystem;

void PcFixture::SetUp() {
    std::string name = (fs::temp_directory_path() / "zelservice-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    m_folder = name;
    winhost::PcDescription description;
    description.root = (m_folder / "pc").string();
    description.environment["PROGRAMDATA"] = "C:\\ProgramData";
    description.modulePath = "C:\\Program Files\\Tarvix\\Service\\bin\\ZELService.exe";
    description.registry["HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service"]
                        ["InstallationPath"] = "C:\\Program Files\\Tarvix\\Service\\";
    winhost::Adapter wired;
    wired.name = "{3C1A5B0E-6E0C-4B0F-9A53-0D5D7A3C1F11}";
    wired.description = "Intel(R) Ethernet Connection I219-LM";
    wired.mac = "00:11:22:33:44:55";
    wired.address = "192.168.1.10";
    wired.mask = "255.255.255.0";
    wired.gateway = "192.168.1.1";
    wired.dhcpServer = "192.168.1.1";
    description.adapters = {wired};
    description.dnsServers = {"192.168.1.53"};
    description.ports = {{uint16_t{664}, FreePort()}, {uint16_t{22}, FreePort()}};
    Describe(description);
    Pc().Reset(description);
    winhost::Scm::Instance().Reset();
    Clock().SetManual(true);
}

void PcFixture::TearDown() {
    Gate().Reset();
    Clock().SetManual(false);
    fs::current_path(fs::temp_directory_path());
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void PcFixture::Describe(winhost::PcDescription&) {}

void PcFixture::PassSleepOf(std::chrono::milliseconds time) {
    ASSERT_TRUE(Clock().AwaitSleeper(time, kPatience)) << "nobody sleeps for " << time.count() << " ms";
    Advance(time);
}

bool PcFixture::Eventually(const std::function<bool()>& holds, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
