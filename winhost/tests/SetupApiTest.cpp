#include <setupapi.h>

#include <cstddef>

#include "winhost/io/MailboxDevice.h"
#include "winhost/tests/MailboxFixture.h"

namespace {

constexpr GUID kMailboxClass = {0x70A9067B, 0x708F, 0x443C, {0x84, 0xBA, 0xBC, 0x39, 0x1F, 0xDB, 0xF7, 0x2B}};

class SetupApiTest : public MailboxFixture {
  protected:
    HDEVINFO List(const GUID& interfaceClass = kMailboxClass) {
        return Keep(
            SetupDiGetClassDevsA(&interfaceClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE),
            SetupDiDestroyDeviceInfoList);
    }
    static DWORD Enumerate(HDEVINFO list, DWORD index, SP_DEVICE_INTERFACE_DATA& data) {
        return Result(SetupDiEnumDeviceInterfaces(list, nullptr, &kMailboxClass, index, &data));
    }
    static SP_DEVICE_INTERFACE_DATA Empty() {
        SP_DEVICE_INTERFACE_DATA data{};
        data.cbSize = sizeof data;
        return data;
    }
};

TEST_F(SetupApiTest, TheMailboxIsTheOneInterfaceOfItsClass) {
    const HDEVINFO list = List();
    SP_DEVICE_INTERFACE_DATA data = Empty();
    EXPECT_EQ(Enumerate(list, 0, data), ERROR_SUCCESS);
    EXPECT_EQ(data.Flags, static_cast<DWORD>(SPINT_ACTIVE));
    EXPECT_TRUE(data.InterfaceClassGuid == kMailboxClass);
    EXPECT_EQ(Enumerate(list, 1, data), ERROR_NO_MORE_ITEMS);
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
}

TEST_F(SetupApiTest, ThereIsNoInterfaceWithoutTheMailboxOrTheFirmware) {
    SP_DEVICE_INTERFACE_DATA data = Empty();
    Change([](auto& pc) { pc.mailbox.clear(); });
    EXPECT_EQ(Enumerate(List(), 0, data), ERROR_NO_MORE_ITEMS);
    Change([this](auto& pc) { pc.mailbox = m_peer->Address(); });
    EXPECT_EQ(Enumerate(List(), 0, data), ERROR_SUCCESS);
    m_peer->Close();
    EXPECT_EQ(Enumerate(List(), 0, data), ERROR_NO_MORE_ITEMS);
}

TEST_F(SetupApiTest, OtherClassesHaveNoInterfaces) {
    const GUID other = {1, 2, 3, {}};
    const HDEVINFO list = List(other);
    SP_DEVICE_INTERFACE_DATA data = Empty();
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, ErrorOf(SetupDiEnumDeviceInterfaces(list, nullptr, &other, 0, &data)));
}

TEST_F(SetupApiTest, OtherPathsMayBeListedInstead) {
    winhost::MailboxDevice::Instance().ListInstead({"first", ""});
    const HDEVINFO list = List();
    winhost::MailboxDevice::Instance().ListInstead({});
    SP_DEVICE_INTERFACE_DATA data = Empty();
    EXPECT_EQ(Enumerate(list, 1, data), ERROR_SUCCESS);
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailA(list, &data, nullptr, 0, &size, nullptr);
    EXPECT_EQ(size, offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + 1);
    EXPECT_EQ(Enumerate(list, 2, data), ERROR_NO_MORE_ITEMS);
    const HDEVINFO own = List();
    EXPECT_EQ(Enumerate(own, 1, data), ERROR_NO_MORE_ITEMS);
}

TEST_F(SetupApiTest, TheSizeOfTheDataIsTested) {
    SP_DEVICE_INTERFACE_DATA data{};
    EXPECT_EQ(Enumerate(List(), 0, data), ERROR_INVALID_USER_BUFFER);
}

TEST_F(SetupApiTest, TheDetailIsAskedForTwice) {
    const HDEVINFO list = List();
    SP_DEVICE_INTERFACE_DATA data = Empty();
    ASSERT_EQ(Enumerate(list, 0, data), ERROR_SUCCESS);
    DWORD size = 0;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER,
              ErrorOf(SetupDiGetDeviceInterfaceDetailA(list, &data, nullptr, 0, &size, nullptr)));

    std::vector<std::byte> room(size);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(room.data());
    detail->cbSize = sizeof *detail;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER,
              ErrorOf(SetupDiGetDeviceInterfaceDetailA(list, &data, detail, size - 1, nullptr, nullptr)));
    EXPECT_TRUE(SetupDiGetDeviceInterfaceDetailA(list, &data, detail, size, nullptr, nullptr));
    EXPECT_STREQ(detail->DevicePath, winhost::MailboxDevice::kPath);
}

TEST_F(SetupApiTest, TheSizeOfTheDetailIsTested) {
    const HDEVINFO list = List();
    SP_DEVICE_INTERFACE_DATA data = Empty();
    ASSERT_EQ(Enumerate(list, 0, data), ERROR_SUCCESS);
    std::vector<std::byte> room(256);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(room.data());
    detail->cbSize = 5;
    EXPECT_EQ(ERROR_INVALID_USER_BUFFER,
              ErrorOf(SetupDiGetDeviceInterfaceDetailA(list, &data, detail, 256, nullptr, nullptr)));
}

TEST_F(SetupApiTest, AListIsGoneOnceDestroyed) {
    const HDEVINFO list = List();
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetupDiDestroyDeviceInfoList(list)));
    SP_DEVICE_INTERFACE_DATA data = Empty();
    EXPECT_EQ(Enumerate(list, 0, data), ERROR_INVALID_HANDLE);
}

}  // namespace
