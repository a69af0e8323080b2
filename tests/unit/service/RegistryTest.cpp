#include "service/Registry.h"

#include <thread>

#include "tests/support/RefusedMemory.h"
#include "tests/support/ServiceFixture.h"

namespace {

class Registry : public ServiceFixture {
  protected:
    static constexpr char kKey[] = "SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service";

    // Each try takes a second.
    static bool ReadPath(std::string& path) {
        bool isRead = false;
        std::thread reader(
            [&] { isRead = ReadRegistryString(path, HKEY_LOCAL_MACHINE, kKey, "InstallationPath"); });
        PassSleepOf(std::chrono::seconds(1));
        reader.join();
        return isRead;
    }
};

}  // namespace

TEST_F(Registry, EachMissingArgumentIsTold) {
    std::string result = "untouched";
    EXPECT_FALSE(ReadRegistryString(result, nullptr, "key", "value"));
    EXPECT_EQ(Messages().back(), "hKeyParent null while reading from registry.");
    EXPECT_FALSE(ReadRegistryString(result, HKEY_LOCAL_MACHINE, nullptr, "value"));
    EXPECT_EQ(Messages().back(), "subkey null while reading from registry.");
    EXPECT_FALSE(ReadRegistryString(result, HKEY_LOCAL_MACHINE, "key", nullptr));
    EXPECT_EQ(Messages().back(), "valueName null while reading from registry.");
    EXPECT_EQ(result, "untouched");
    EXPECT_EQ(Gate().Count("RegOpenKeyExA"), 0u);
}

TEST_F(Registry, AnInstallationPathWithoutANameIsEmpty) {
    std::string path;
    EXPECT_FALSE(GetInstallationPath(path, nullptr));
    EXPECT_EQ(Messages().back(), "Installation path is empty.");
}

TEST_F(Registry, AValueWithoutATerminatorEndsWithItsBytes) {
    Pc().Change([](auto& pc) {
        const std::string key = std::string("HKEY_LOCAL_MACHINE\\") + kKey;
        pc.registry.erase(key);
        pc.registryNumbers[key]["InstallationPath"] = 0x64636261;
    });
    std::string path;
    EXPECT_TRUE(ReadPath(path));
    EXPECT_EQ(path, "abcd");
}

TEST_F(Registry, AValueForWhichThereIsNoMemoryIsNotRead) {
    const RefusedMemory refused(1025);
    std::string path;
    EXPECT_FALSE(ReadPath(path));
    EXPECT_EQ(Messages().back(), "Failed to allocate memory while reading from registry.");
    EXPECT_TRUE(path.empty());
}

TEST_F(Registry, ALongValueForWhichThereIsNoMemoryIsNotRead) {
    Gate().FailNth("RegQueryValueExA", 1, ERROR_MORE_DATA);
    const RefusedMemory refused(2049);
    std::string path;
    EXPECT_FALSE(ReadPath(path));
    EXPECT_EQ(Messages().back(), "Failed to allocate memory while reallocating memory from registry.");
    EXPECT_TRUE(path.empty());
}

TEST_F(Registry, AValueThatKeepsGrowingIsGivenUpAfterAMebibyte) {
    int reads = 0;
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        if (call != "RegQueryValueExA") return 0;
        ++reads;
        return ERROR_MORE_DATA;
    });
    std::string path;
    EXPECT_FALSE(ReadPath(path));
    EXPECT_EQ(reads, 1024);
}
