// A fresh PC in a folder of its own, for one test, with what nearly every test of its calls needs.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <stdlib.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/pc/Pc.h"
#include "winhost/tests/Errors.h"
#include "winhost/tests/ManualTime.h"

class PcFixture : public testing::Test {
  protected:
    PcFixture() {
        std::string folder = (std::filesystem::temp_directory_path() / "winhost-XXXXXX").string();
        if (!mkdtemp(folder.data())) throw std::runtime_error("no temporary folder");
        m_root = folder;
        StartPc([](winhost::PcDescription&) {});
    }
    ~PcFixture() override {
        winhost::Pc::Instance().Reset({});
        EXPECT_EQ(m_handles, winhost::HandleTable::Instance().Size()) << "a handle is left open";
        std::error_code ignored;
        std::filesystem::current_path(std::filesystem::temp_directory_path(), ignored);
        std::filesystem::remove_all(m_root, ignored);
    }

    void TearDown() override {
        for (; !m_closings.empty(); m_closings.pop_back())
            m_closings.back()();
    }

    // Starts the PC anew, in the test's folder.
    void StartPc(const std::function<void(winhost::PcDescription&)>& describe) {
        winhost::PcDescription description;
        description.root = m_root.string();
        describe(description);
        winhost::Pc::Instance().Reset(description);
    }

    // While it runs.
    static void Change(const std::function<void(winhost::PcDescription&)>& change) {
        winhost::Pc::Instance().Change(change);
    }
    static void SetUser(const std::string& name) {
        Change([&](auto& pc) { pc.userName = name; });
    }
    static winhost::PcDescription Description() { return winhost::Pc::Instance().Description(); }
    template <class Record>
    static std::vector<Record> Records() {
        return winhost::Pc::Instance().Records<Record>();
    }
    static winhost::Clock& Clock() { return winhost::Clock::Instance(); }
    // Waits until a thread sleeps for just so long on the standing clock, and lets the time pass.
    static void PassSleepOf(std::chrono::milliseconds time) {
        ASSERT_TRUE(Clock().AwaitSleeper(time));
        Clock().Advance(time);
    }
    // The next call of this name fails.
    static void Fail(const std::string& call, uint32_t error) {
        winhost::Gate::Instance().FailNth(call, 1, error);
    }

    // The end of the test closes it, the last one first, while the test's members still live. A test may
    // close it before.
    template <class Handle, class Closing>
    Handle Keep(Handle handle, Closing close) {
        m_closings.push_back([=] { close(handle); });
        return handle;
    }
    HANDLE Keep(HANDLE handle) { return Keep(handle, CloseHandle); }
    HANDLE NewEvent() { return Keep(CreateEventA(nullptr, TRUE, FALSE, nullptr)); }

    // Where a file of the PC lies.
    std::filesystem::path OnC(const std::string& name) const { return m_root / "C:" / name; }
    void Write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(OnC(name).parent_path());
        std::ofstream(OnC(name)) << text;
    }
    std::string ReadFromC(const std::string& name) const {
        std::ifstream file(OnC(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // False when it doesn't come true within twenty seconds.
    static bool Eventually(const std::function<bool()>& holds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!holds()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    // Of this process.
    static size_t OpenDescriptors() { return EntriesOf("/proc/self/fd"); }
    static size_t Threads() { return EntriesOf("/proc/self/task"); }

    std::filesystem::path m_root;

  private:
    static size_t EntriesOf(const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }

    std::vector<std::function<void()>> m_closings;
    const size_t m_handles = winhost::HandleTable::Instance().Size();
};
