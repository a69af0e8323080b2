// A simulated PC in a folder of its own, with a clock that the test moves.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

class PcFixture : public ::testing::Test {
  protected:
    // How long a test waits, in real time, for what has to come.
    static constexpr std::chrono::milliseconds kPatience{20000};

    void SetUp() override;
    void TearDown() override;

    // Called before the PC is built: the laptop of DescribeLaptop, with unused ports in place of 664 and 22.
    virtual void Describe(winhost::PcDescription& description);

    static winhost::Pc& Pc() { return winhost::Pc::Instance(); }
    static winhost::Clock& Clock() { return winhost::Clock::Instance(); }
    static winhost::Gate& Gate() { return winhost::Gate::Instance(); }

    // Moves the clock.
    static void Advance(std::chrono::nanoseconds by) { Clock().Advance(by); }
    // Waits until a thread sleeps for just so long, and lets the time pass.
    static void PassSleepOf(std::chrono::milliseconds time);

    // True once `holds` does; false when the patience is over.
    static bool Eventually(const std::function<bool()>& holds,
                           std::chrono::milliseconds patience = kPatience);

    // From the moment at which the service has checked the file, writing to it fails as on a full disk. Until
    // the gate is reset.
    static void FillDiskFor(const std::string& windowsPath);

    // The values of an argument that has no effect on this PC, in the order of the calls.
    static std::vector<uint32_t> ArgumentsOf(const std::string& call, const std::string& name);

    // Outside of the PC's drives: for sockets and the like.
    const std::filesystem::path& Folder() const { return m_folder; }
    // Where a Windows path of the PC lies.
    static std::filesystem::path HostPath(const std::string& windowsPath) {
        return Pc().HostPath(windowsPath);
    }

  private:
    std::filesystem::path m_folder;
};
