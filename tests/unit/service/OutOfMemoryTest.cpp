// What is thrown, or missing, when memory runs out while the service starts.
#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "service/Registry.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/service/Scm.h"

namespace {

using namespace std::chrono_literals;

// The one size for which there is no memory; 0 for none.
std::atomic<size_t> g_refusedSize{0};

constexpr char kKey[] = "SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service";

class OutOfMemory : public ServiceFixture {
  protected:
    void TearDown() override {
        g_refusedSize = 0;
        ServiceFixture::TearDown();
    }

    void Install(const std::string& path) {
        Pc().Change([&](auto& description) {
            description.registry[std::string("HKEY_LOCAL_MACHINE\\") + kKey]["InstallationPath"] = path;
        });
    }

    bool ReadPath() {
        std::string path;
        bool read = true;
        std::thread reader(
            [&] { read = ReadRegistryString(path, HKEY_LOCAL_MACHINE, kKey, "InstallationPath"); });
        PassSleepOf(1s);
        reader.join();
        return read;
    }

    // The start fails where it puts "bin" behind a path so long that the text has to grow.
    void RunWithoutMemory(const char* argument) {
        constexpr size_t kPath = 54321;
        Install(std::string(kPath, 'x'));
        std::thread program([this, argument] {
            std::string name = "ZELService.exe", mode = argument;
            char* argv[] = {name.data(), mode.data(), nullptr};
            EXPECT_EQ(service->Main(2, argv), 0);
        });
        EXPECT_TRUE(Clock().AwaitSleeper(1s));
        g_refusedSize = 2 * kPath + 1;
        Advance(1s);
        program.join();
    }
};

}  // namespace

void* operator new(size_t size) {
    void* const memory = size == g_refusedSize ? nullptr : std::malloc(size ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return size == g_refusedSize ? nullptr : std::malloc(size ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

TEST_F(OutOfMemory, ARegistryValueNeedsItsBuffer) {
    g_refusedSize = 1025;
    EXPECT_FALSE(ReadPath());
    EXPECT_EQ(Messages().back(), "Failed to allocate memory while reading from registry.");
}

TEST_F(OutOfMemory, ALongRegistryValueNeedsALargerOne) {
    Install(std::string(1500, 'x'));
    g_refusedSize = 2049;
    EXPECT_FALSE(ReadPath());
    EXPECT_EQ(Messages().back(), "Failed to allocate memory while reallocating memory from registry.");
}

TEST_F(OutOfMemory, AnExceptionDuringTheStartStopsTheService) {
    ExpectError("Exception: In Register");
    RunWithoutMemory("-service");
    const auto reports = Pc().ServiceReports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[1].state, static_cast<uint32_t>(SERVICE_STOPPED));
    EXPECT_EQ(reports[1].win32ExitCode, 1064u);
}

TEST_F(OutOfMemory, AnExceptionInTheConsoleModeEndsTheProgram) {
    ExpectError("Exception: In main");
    RunWithoutMemory("-console");
    EXPECT_EQ(Messages().back(), "Exception: In main");
}
