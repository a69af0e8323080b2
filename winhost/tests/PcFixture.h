// A fresh PC in a folder of its own, for one test.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "winhost/core/HandleTable.h"
#include "winhost/pc/Pc.h"
#include "winhost/tests/Errors.h"

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

    // Starts the PC anew, in the test's folder.
    void StartPc(const std::function<void(winhost::PcDescription&)>& describe) {
        winhost::PcDescription description;
        description.root = m_root.string();
        describe(description);
        winhost::Pc::Instance().Reset(description);
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

    const size_t m_handles = winhost::HandleTable::Instance().Size();
};
