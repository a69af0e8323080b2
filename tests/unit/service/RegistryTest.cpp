#include "service/Registry.h"

#include "tests/support/ServiceFixture.h"

using Registry = ServiceFixture;

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
