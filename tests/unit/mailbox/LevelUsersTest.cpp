// Each firmware level has code that tests it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "mailbox/FirmwareLevels.h"

namespace fs = std::filesystem;

namespace {

// What these turn on does not exist yet. A row here goes when its user comes.
const std::set<std::string> kWithoutUser = {};

std::string ProductSources() {
    std::string text;
    for (const std::string folder : {PRODUCT_FOLDERS})
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(SOURCE_FOLDER) / folder)) {
            std::ifstream file(entry.path());
            text.append(std::istreambuf_iterator<char>(file), {});
        }
    return text;
}

bool IsUsed(const std::string& sources, const std::string& level) {
    const std::string name = "FirmwareLevel::" + level;
    for (size_t at = sources.find(name); at != sources.npos; at = sources.find(name, at + 1)) {
        const char behind = sources[at + name.size()];
        if (!std::isalnum(static_cast<unsigned char>(behind)) && behind != '_') return true;
    }
    return false;
}

}  // namespace

TEST(FirmwareLevels, EachHasAUser) {
    const std::string sources = ProductSources();
    ASSERT_TRUE(IsUsed(sources, "AllAdapters"));
    for (const FirmwareLevelRow& level : kFirmwareLevels) {
        if (kWithoutUser.contains(level.name))
            EXPECT_FALSE(IsUsed(sources, level.name))
                << "FirmwareLevel::" << level.name << " has a user now: remove it from kWithoutUser";
        else
            EXPECT_TRUE(IsUsed(sources, level.name))
                << "nothing in the product tests FirmwareLevel::" << level.name;
    }
}
