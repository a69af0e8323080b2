#include <windows.h>

#include "winhost/core/Gate.h"
#include "winhost/tests/PcFixture.h"

namespace {

constexpr const char* kKey = "SOFTWARE\\WOW6432Node\\Vendor\\Product Name";

class RegistryTest : public PcFixture {
  protected:
    RegistryTest() {
        StartPc([](winhost::PcDescription& pc) {
            pc.registry["HKEY_LOCAL_MACHINE\\" + std::string(kKey)] = {{"InstallPath", "C:\\Here\\"},
                                                                       {"", "the default"}};
        });
    }
    ~RegistryTest() override {
        for (const HKEY key : m_opened)
            RegCloseKey(key);
    }
    // Keys that the test doesn't close go with it.
    HKEY Open(const char* path, HKEY below = HKEY_LOCAL_MACHINE) {
        EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyExA(below, path, 0, KEY_READ, &m_opened.emplace_back())) << path;
        return m_opened.back();
    }
    std::vector<HKEY> m_opened;
};

TEST_F(RegistryTest, AValueIsReadWithItsTypeAndItsEnd) {
    const HKEY key = Open(kKey);
    char text[64];
    DWORD type = 0, size = sizeof(text);
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryValueExA(key, "InstallPath", nullptr, &type, reinterpret_cast<LPBYTE>(text), &size));
    EXPECT_EQ(DWORD{REG_SZ}, type);
    EXPECT_EQ(9u, size);
    EXPECT_STREQ("C:\\Here\\", text);
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
}

TEST_F(RegistryTest, ANumberIsADword) {
    winhost::Pc::Instance().Change([](winhost::PcDescription& pc) {
        pc.registryNumbers["HKEY_LOCAL_MACHINE\\SOFTWARE\\Numbers\\Below"]["Count"] = 0x01020304;
    });
    Open("SOFTWARE\\Numbers");
    const HKEY key = Open("SOFTWARE\\Numbers\\Below");
    DWORD number = 0, type = 0, size = sizeof number;
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryValueExA(key, "count", nullptr, &type, reinterpret_cast<LPBYTE>(&number), &size));
    EXPECT_EQ(DWORD{REG_DWORD}, type);
    EXPECT_EQ(sizeof number, size);
    EXPECT_EQ(0x01020304u, number);
}

TEST_F(RegistryTest, AnExpandableTextIsReadUnexpanded) {
    winhost::Pc::Instance().Change([](winhost::PcDescription& pc) {
        pc.registryExpandTexts["HKEY_LOCAL_MACHINE\\SOFTWARE\\Paths"]["Root"] = "%SystemRoot%\\x";
    });
    const HKEY key = Open("SOFTWARE\\Paths");
    char text[64];
    DWORD type = 0, size = sizeof text;
    ASSERT_EQ(ERROR_SUCCESS,
              RegQueryValueExA(key, "Root", nullptr, &type, reinterpret_cast<LPBYTE>(text), &size));
    EXPECT_EQ(DWORD{REG_EXPAND_SZ}, type);
    EXPECT_STREQ("%SystemRoot%\\x", text);
    RegCloseKey(key);
}

TEST_F(RegistryTest, NamesHaveNoCase) {
    const HKEY key = Open("software\\wow6432node\\VENDOR\\product name");
    DWORD size = 0;
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueExA(key, "INSTALLPATH", nullptr, nullptr, nullptr, &size));
    EXPECT_EQ(9u, size);
}

TEST_F(RegistryTest, ABufferThatIsTooSmallLearnsTheSize) {
    const HKEY key = Open(kKey);
    BYTE text[8] = {'x'};
    DWORD size = sizeof(text);
    EXPECT_EQ(ERROR_MORE_DATA, RegQueryValueExA(key, "InstallPath", nullptr, nullptr, text, &size));
    EXPECT_EQ(9u, size);
    EXPECT_EQ('x', text[0]);
}

TEST_F(RegistryTest, MissingKeysAndValuesAreNotFound) {
    HKEY none = HKEY_LOCAL_MACHINE;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Vendor", 0, KEY_READ, &none));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\WOW6432Node\\Vend", 0, KEY_READ, &none));
    const HKEY key = Open(kKey);
    DWORD size = 0;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegQueryValueExA(key, "Other", nullptr, nullptr, nullptr, &size));
}

TEST_F(RegistryTest, AKeyAboveADescribedOneExistsAndLeadsToIt) {
    const HKEY vendor = Open("SOFTWARE\\WOW6432Node\\Vendor");
    const HKEY key = Open("Product Name", vendor);
    char text[64];
    DWORD size = sizeof(text);
    EXPECT_EQ(ERROR_SUCCESS,
              RegQueryValueExA(key, nullptr, nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &size));
    EXPECT_STREQ("the default", text);
}

TEST_F(RegistryTest, AClosedKeyIsInvalid) {
    const HKEY key = Open(kKey);
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegCloseKey(key));
    DWORD size = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegQueryValueExA(key, "InstallPath", nullptr, nullptr, nullptr, &size));
    HKEY other;
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegOpenKeyExA(key, "x", 0, KEY_READ, &other));
}

TEST_F(RegistryTest, ARootStaysOpen) {
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(Open(kKey)));
}

TEST_F(RegistryTest, WrongParametersAreRefused) {
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_INVALID_PARAMETER, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, nullptr));
    EXPECT_EQ(ERROR_BAD_PATHNAME, RegOpenKeyExA(HKEY_LOCAL_MACHINE, "\\SOFTWARE", 0, KEY_READ, &key));
    key = Open(kKey);
    BYTE data[4];
    EXPECT_EQ(ERROR_INVALID_PARAMETER, RegQueryValueExA(key, "InstallPath", nullptr, nullptr, data, nullptr));
}

TEST_F(RegistryTest, ErrorsAreReturnedAndGetLastErrorIsLeftAlone) {
    SetLastError(77);
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegOpenKeyExA(HKEY_LOCAL_MACHINE, "None", 0, KEY_READ, &key));
    winhost::Gate::Instance().FailNth("RegOpenKeyExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(ERROR_ACCESS_DENIED, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key));
    EXPECT_EQ(77u, GetLastError());
}

}  // namespace
