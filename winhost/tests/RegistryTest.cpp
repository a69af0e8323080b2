#include "winhost/tests/PcFixture.h"

namespace {

constexpr const char* kKey = "SOFTWARE\\WOW6432Node\\Vendor\\Product Name";

class RegistryTest : public PcFixture {
  protected:
    RegistryTest() {
        StartPc([](auto& pc) {
            pc.registry["HKEY_LOCAL_MACHINE\\" + std::string(kKey)] = {{"InstallPath", "C:\\Here\\"},
                                                                       {"", "the default"}};
        });
    }
    HKEY Open(const char* path, HKEY below = HKEY_LOCAL_MACHINE) {
        HKEY key = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyExA(below, path, 0, KEY_READ, &key)) << path;
        return Keep(key, RegCloseKey);
    }
    static LONG ErrorOfOpen(const char* path, HKEY below = HKEY_LOCAL_MACHINE) {
        HKEY none = HKEY_LOCAL_MACHINE;
        const LONG error = RegOpenKeyExA(below, path, 0, KEY_READ, &none);
        EXPECT_EQ(nullptr, none) << path;
        return error;
    }
    // Its type, and as many bytes as the call says it has.
    static std::pair<DWORD, std::string> Value(HKEY key, const char* name) {
        std::string bytes(64, '?');
        DWORD type = 0, size = 64;
        EXPECT_EQ(ERROR_SUCCESS,
                  RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(bytes.data()), &size));
        return {type, bytes.substr(0, size)};
    }
    // Queries the value with a buffer of `room` bytes, or with none when `room` is 0. Returns the error and
    // the size that the call has set.
    static std::pair<LONG, DWORD> Query(HKEY key, const char* name, DWORD room = 0) {
        BYTE bytes[64] = {'x'};
        DWORD size = room;
        const LONG error = RegQueryValueExA(key, name, nullptr, nullptr, room ? bytes : nullptr, &size);
        EXPECT_EQ('x', bytes[0]);
        return {error, size};
    }
};

TEST_F(RegistryTest, AValueIsReadWithItsTypeAndItsEnd) {
    using Value = std::pair<DWORD, std::string>;
    Change([](auto& pc) {
        pc.registryNumbers["HKEY_LOCAL_MACHINE\\SOFTWARE\\Other\\Below"]["Count"] = 0x01020304;
        pc.registryExpandTexts["HKEY_LOCAL_MACHINE\\SOFTWARE\\Other"]["Root"] = "%SystemRoot%\\x";
    });
    EXPECT_EQ(Value(REG_SZ, {"C:\\Here\\", 9}), RegistryTest::Value(Open(kKey), "InstallPath"));
    const HKEY other = Open("SOFTWARE\\Other");
    EXPECT_EQ(Value(REG_EXPAND_SZ, {"%SystemRoot%\\x", 15}), RegistryTest::Value(other, "Root"))
        << "it is not expanded";
    EXPECT_EQ(Value(REG_DWORD, "\x04\x03\x02\x01"), RegistryTest::Value(Open("Below", other), "count"));
}

TEST_F(RegistryTest, NamesHaveNoCase) {
    const HKEY key = Open("software\\wow6432node\\VENDOR\\product name");
    EXPECT_EQ(std::pair(LONG{ERROR_SUCCESS}, DWORD{9}), Query(key, "INSTALLPATH"));
}

TEST_F(RegistryTest, ABufferThatIsTooSmallLearnsTheSize) {
    EXPECT_EQ(std::pair(LONG{ERROR_MORE_DATA}, DWORD{9}), Query(Open(kKey), "InstallPath", 8));
}

TEST_F(RegistryTest, MissingKeysAndValuesAreNotFound) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfOpen("SOFTWARE\\Vendor"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfOpen("SOFTWARE\\WOW6432Node\\Vend"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Query(Open(kKey), "Other").first);
}

TEST_F(RegistryTest, AKeyAboveADescribedOneExistsAndLeadsToIt) {
    const HKEY vendor = Open("SOFTWARE\\WOW6432Node\\Vendor");
    EXPECT_EQ(std::string("the default", 12), Value(Open("Product Name", vendor), nullptr).second);
}

TEST_F(RegistryTest, AClosedKeyIsInvalidAndARootStaysOpen) {
    const HKEY key = Open(kKey);
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegCloseKey(key));
    EXPECT_EQ(ERROR_INVALID_HANDLE, Query(key, "InstallPath").first);
    HKEY other;
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegOpenKeyExA(key, "x", 0, KEY_READ, &other));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    Open(kKey);
}

TEST_F(RegistryTest, WrongParametersAreRefused) {
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_INVALID_PARAMETER, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, nullptr));
    EXPECT_EQ(ERROR_BAD_PATHNAME, RegOpenKeyExA(HKEY_LOCAL_MACHINE, "\\SOFTWARE", 0, KEY_READ, &key));
    BYTE data[4];
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              RegQueryValueExA(Open(kKey), "InstallPath", nullptr, nullptr, data, nullptr));
}

TEST_F(RegistryTest, ErrorsLeaveGetLastErrorAlone) {
    SetLastError(77);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfOpen("None"));
    Fail("RegOpenKeyExA", ERROR_ACCESS_DENIED);
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_ACCESS_DENIED, RegOpenKeyExA(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key));
    EXPECT_EQ(77u, GetLastError());
}

}  // namespace
