#include "tests/support/PcFixture.h"

#include <stdlib.h>

#include <stdexcept>
#include <string_view>
#include <thread>

#include "tests/support/ConsoleClient.h"
#include "tests/support/Laptop.h"
#include "winhost/service/Scm.h"

namespace fs = std::filesystem;

void PcFixture::SetUp() {
    std::string name = (fs::temp_directory_path() / "zelservice-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    m_folder = name;
    winhost::PcDescription description = DescribeLaptop((m_folder / "pc").string());
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

void PcFixture::FillDiskFor(const std::string& windowsPath) {
    Gate().Ask([path = HostPath(windowsPath)](const char* call, const void*) -> uint32_t {
        // The last call of the check.
        if (std::string_view(call) == "GetKernelObjectSecurity" && fs::is_regular_file(path)) {
            fs::remove(path);
            fs::create_symlink("/dev/full", path);
        }
        return 0;
    });
}

std::vector<uint32_t> PcFixture::ArgumentsOf(const std::string& call, const std::string& name) {
    std::vector<uint32_t> values;
    for (const auto& argument : Pc().Records<winhost::CallArgument>())
        if (argument.call == call && argument.name == name) values.push_back(argument.value);
    return values;
}

void PcFixture::PassSleepOf(std::chrono::milliseconds time) {
    ASSERT_TRUE(Clock().AwaitSleeper(time, kPatience)) << "nothing sleeps for " << time.count() << " ms";
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
