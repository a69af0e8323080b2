// A fresh PC in a folder of its own, for one test.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "winhost/pc/Pc.h"

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

    std::filesystem::path m_root;
};
