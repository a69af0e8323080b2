// The service with the scripted cloud library, and firmware that has the data of a cloud connection.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ServiceFixture.h"
#include "tests/support/scriptednuba/Script.h"

class CloudFixture : public ServiceFixture {
  protected:
    static constexpr char kWorkingFolder[] = R"(C:\ProgramData\Tarvix\Manageability\)";
    static constexpr char kLibraryFolder[] = R"(C:\Program Files\Tarvix\Cloud)";
    static constexpr char kNoCloudFile[] = "Unable to open cloud.txt file";
    static constexpr std::chrono::milliseconds kRetry{5000};

    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.libraryFolders = {kLibraryFolder};
    }
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
        service->m_vorkVersion = 50;
        firmware.Change([](mpm::Settings& settings) {
            settings.Cloud.Hostname = "cloud.example.com";
            settings.Cloud.Port = 4433;
            settings.Cloud.vCloudCert = "the certificate";
            settings.Cloud.vCloudKey = "the key";
            settings.Cloud.vCloudCACert = "the authority";
        });
        m_object = dlopen(Built().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_TRUE(m_object) << dlerror();
        m_script = reinterpret_cast<ScriptOfNuba_Fn>(dlsym(m_object, "ScriptOfNuba"))();
        m_script->Reset();
    }
    void TearDown() override {
        {
            const std::lock_guard lock(m_mutex);
            m_isOver = true;
        }
        m_ends.notify_all();
        ServiceFixture::TearDown();
        EXPECT_EQ(m_script->Count("STALE"), 0u) << "the library got what had been deleted";
        EXPECT_EQ(m_script->LiveObjects(), 0u);
        m_script->Reset();
        // The service leaves it loaded.
        while (const HMODULE library = GetModuleHandleA("nubaapi.dll"))
            FreeLibrary(library);
        dlclose(m_object);
    }

    scriptednuba::Script& Script() { return *m_script; }
    NubaClient& Client() { return service->m_nubaClient; }

    // ---- the library's file ----

    static std::filesystem::path Built() {
        return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "scriptednuba/nubaapi.so";
    }
    static std::filesystem::path Installed() { return HostPath(kLibraryFolder) / "nubaapi.so"; }
    static void InstallLibrary() {
        std::filesystem::create_directories(HostPath(kLibraryFolder));
        std::filesystem::create_symlink(Built(), Installed());
    }
    // A copy that has another name for one of its functions.
    static void InstallLibraryWithout(const std::string& function) {
        std::filesystem::create_directories(HostPath(kLibraryFolder));
        std::ifstream source(Built(), std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(source), {}};
        for (size_t at = 0; (at = bytes.find(function, at)) != std::string::npos; ++at)
            bytes[at] = 'x';
        std::ofstream(Installed(), std::ios::binary) << bytes;
    }

    // ---- the files of the connection ----

    static std::filesystem::path File(const std::string& name) { return HostPath(kWorkingFolder + name); }
    static std::string Read(const std::string& name) {
        std::ifstream file(File(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static void Write(const std::string& name, const std::string& text) {
        std::ofstream(File(name), std::ios::binary) << text;
    }
    static bool Exists(const std::string& name) {
        return std::filesystem::exists(std::filesystem::symlink_status(File(name)));
    }
    void SetCloud(const std::function<void(mpm::CloudSettings&)>& change) {
        firmware.Change([&](mpm::Settings& settings) { change(settings.Cloud); });
    }
    void SetDomains(const std::string& domains) {
        firmware.Change([&](mpm::Settings& settings) { settings.Domains = domains; });
    }
    // The library and everything that a connection needs.
    void Provision() {
        InstallLibrary();
        ASSERT_TRUE(Client().GetCloudProvisioning());
    }

    // Empty: none.
    static void SetSuffix(winhost::PcDescription& pc, const std::string& adapter, const std::string& suffix) {
        pc.registry[R"(HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\Tcpip\Parameters\Interfaces\)" +
                    adapter]["DhcpDomain"] = suffix;
    }

    // ---- the connection ----

    // nuba_server_init returns when deinit is called.
    void HoldConnections() {
        Script().WhileConnected([this] {
            std::unique_lock lock(m_mutex);
            m_ends.wait(lock, [this] { return m_isOver || m_isDeinit; });
            m_isDeinit = false;
        });
        Script().OnDeinit([this] { EndConnection(); });
    }
    // The cloud ends the connection.
    void EndConnection() {
        {
            const std::lock_guard lock(m_mutex);
            m_isDeinit = true;
        }
        m_ends.notify_all();
    }
    bool AwaitConnections(size_t count) {
        return Eventually([&] { return Script().Count("nuba_server_init") >= count; });
    }
    // Runs it on a thread of its own while time passes.
    void InTime(const std::function<void()>& run) {
        using namespace std::chrono_literals;
        std::atomic<bool> isOver{false};
        std::thread runner([&] {
            run();
            isOver = true;
        });
        const bool ended = Eventually([&] {
            if (!isOver && Clock().AwaitSleepers(1, 5ms)) Advance(100ms);
            return isOver.load();
        });
        if (!ended) Clock().SetManual(false);
        runner.join();
        EXPECT_TRUE(ended);
    }

  private:
    void* m_object = nullptr;
    scriptednuba::Script* m_script = nullptr;
    std::mutex m_mutex;
    std::condition_variable m_ends;
    bool m_isOver = false, m_isDeinit = false;
};
