// What the WLAN service reports about a connection: its attributes, the profile and the BSSs in range.
#include "testbed/Utf8.h"
#include "winhost/tests/WlanFixture.h"
#include "winhost/wlan/WlanMemory.h"

namespace {

constexpr DWORD kInvalidState = 5023;

class WlanQueries : public WlanFixture {
  protected:
    void SetUp() override {
        StartPc([](auto& pc) {
            pc.wlanInterfaces = {{kGuid, "Wireless Adapter", 1, "office"}};
            winhost::WlanNetwork home, office;
            office.name = "office";
            office.ssid = "Büro";
            office.authentication = "WPA3SAE";
            office.key = "a<b&c";
            office.channel = 6;
            pc.wlanNetworks = {home, office};
        });
        OpenClient();
    }
    void TearDown() override {
        WlanFixture::TearDown();
        EXPECT_EQ(0u, winhost::WlanMemoryInUse());
    }

    template <class Type>
    DWORD Query(uint32_t opcode, Type& value) {
        DWORD size = 0;
        PVOID data = nullptr;
        const DWORD error = WlanQueryInterface(m_client, &m_guid, static_cast<WLAN_INTF_OPCODE>(opcode),
                                               nullptr, &size, &data, nullptr);
        if (error) return error;
        EXPECT_EQ(sizeof(Type), size);
        std::memcpy(&value, data, sizeof(Type));
        WlanFreeMemory(data);
        return error;
    }
    DWORD Connection(WLAN_CONNECTION_ATTRIBUTES& attributes) { return Query(7, attributes); }
    DWORD Channel(ULONG& channel) { return Query(8, channel); }
    DWORD Profile(const wchar_t* name, DWORD flags, std::string& xml) {
        LPWSTR text = nullptr;
        DWORD access = 0;
        const DWORD error = WlanGetProfile(m_client, &m_guid, name, nullptr, &text, &flags, &access);
        if (!error) xml = testbed::ToUtf8(std::wstring_view(text));
        WlanFreeMemory(text);
        return error;
    }
    DWORD ErrorOfBssList(DOT11_SSID* ssid = nullptr, DOT11_BSS_TYPE type = dot11_BSS_type_any) {
        PWLAN_BSS_LIST list = nullptr;
        return WlanGetNetworkBssList(m_client, &m_guid, ssid, type, FALSE, nullptr, &list);
    }
    // The frequency of the first entry; 0 when the list is empty.
    ULONG Frequency(const char* ssid, BOOL secured) {
        DOT11_SSID wanted{};
        wanted.uSSIDLength = static_cast<ULONG>(std::strlen(ssid));
        std::memcpy(wanted.ucSSID, ssid, wanted.uSSIDLength);
        PWLAN_BSS_LIST list = nullptr;
        EXPECT_EQ(ERROR_SUCCESS,
                  WlanGetNetworkBssList(m_client, &m_guid, &wanted, dot11_BSS_type_infrastructure, secured,
                                        nullptr, &list));
        const ULONG frequency = list->dwNumberOfItems ? list->wlanBssEntries[0].ulChCenterFrequency : 0;
        WlanFreeMemory(list);
        return frequency;
    }
};

TEST_F(WlanQueries, TheConnectionIsThatOfTheNetwork) {
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    ASSERT_EQ(ERROR_SUCCESS, Connection(attributes));
    EXPECT_EQ(wlan_interface_state_connected, attributes.isState);
    EXPECT_EQ(L"office", std::wstring(attributes.strProfileName));
    const auto& association = attributes.wlanAssociationAttributes;
    EXPECT_EQ("Büro", std::string(reinterpret_cast<const char*>(association.dot11Ssid.ucSSID),
                                  association.dot11Ssid.uSSIDLength));
    EXPECT_EQ(80u, association.wlanSignalQuality);
    EXPECT_TRUE(attributes.wlanSecurityAttributes.bSecurityEnabled);
    EXPECT_EQ(DOT11_AUTH_ALGO_WPA3_SAE, attributes.wlanSecurityAttributes.dot11AuthAlgorithm);
    EXPECT_EQ(DOT11_CIPHER_ALGO_CCMP, attributes.wlanSecurityAttributes.dot11CipherAlgorithm);
    ULONG channel = 0;
    ASSERT_EQ(ERROR_SUCCESS, Channel(channel));
    EXPECT_EQ(6u, channel);
}

TEST_F(WlanQueries, AnInterfaceThatNamesNoNetworkIsInTheFirstOne) {
    Change([](auto& pc) { pc.wlanInterfaces[0].network.clear(); });
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    ASSERT_EQ(ERROR_SUCCESS, Connection(attributes));
    EXPECT_EQ(L"Home", std::wstring(attributes.strProfileName));
}

TEST_F(WlanQueries, WithoutAConnectionThereIsNothingToAsk) {
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    ULONG channel = 0;
    Change([](auto& pc) { pc.wlanInterfaces[0].state = 4; });
    EXPECT_EQ(kInvalidState, Connection(attributes));
    EXPECT_EQ(kInvalidState, Channel(channel));
    Change([](auto& pc) { pc.wlanInterfaces[0].state = 1; });
    EXPECT_EQ(DWORD{50}, Query(4, channel)) << "what winhost does not know";
    m_guid.Data1 ^= 1;
    EXPECT_EQ(ERROR_NOT_FOUND, Connection(attributes));
}

TEST_F(WlanQueries, TheKeyIsPlainOnlyWhenAskedFor) {
    std::string plain, hidden;
    ASSERT_EQ(ERROR_SUCCESS, Profile(L"office", 4, plain));
    ASSERT_EQ(ERROR_SUCCESS, Profile(L"office", 0, hidden));
    EXPECT_NE(std::string::npos, plain.find("<protected>false</protected><keyMaterial>a&lt;b&amp;c<"));
    EXPECT_NE(std::string::npos, plain.find("<authentication>WPA3SAE</authentication>"));
    EXPECT_NE(std::string::npos, plain.find("<hex>42C3BC726F</hex><name>Büro</name>"));
    EXPECT_NE(std::string::npos, hidden.find("<protected>true</protected><keyMaterial>01000000D0"));
    EXPECT_EQ(std::string::npos, hidden.find("a&lt;b"));
    EXPECT_EQ(ERROR_NOT_FOUND, Profile(L"none", 4, plain));
}

TEST_F(WlanQueries, AKeyOfAnyLengthIsHidden) {
    const std::string key(1 << 20, 'k');
    std::string xml;
    Change([&](auto& pc) { pc.wlanNetworks[1].profile = "<keyMaterial>" + key + "</keyMaterial>"; });
    ASSERT_EQ(ERROR_SUCCESS, Profile(L"office", 0, xml));
    EXPECT_TRUE(xml.starts_with("<keyMaterial>01000000D0"));
    EXPECT_TRUE(xml.ends_with("</keyMaterial>"));
    EXPECT_LT(xml.size(), key.size());
}

TEST_F(WlanQueries, AProfileMayBeWrittenOut) {
    std::string xml;
    Change([](auto& pc) { pc.wlanNetworks[1].profile = "<whatever/>"; });
    ASSERT_EQ(ERROR_SUCCESS, Profile(L"office", 4, xml));
    EXPECT_EQ("<whatever/>", xml);
}

TEST_F(WlanQueries, TheBssListHasTheNetworksOfAnSsid) {
    EXPECT_EQ(2'437'000u, Frequency("Büro", TRUE));
    EXPECT_EQ(0u, Frequency("Büro", FALSE));
    EXPECT_EQ(5'180'000u, Frequency("Home", TRUE));
    EXPECT_EQ(0u, Frequency("Nowhere", TRUE));
    Change([](auto& pc) { pc.wlanNetworks[1].frequency = 5'955'000; });
    EXPECT_EQ(5'955'000u, Frequency("Büro", TRUE));
    Change([](auto& pc) { pc.wlanNetworks[1].listed = false; });
    EXPECT_EQ(0u, Frequency("Büro", TRUE));
    PWLAN_BSS_LIST list = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              WlanGetNetworkBssList(m_client, &m_guid, nullptr, dot11_BSS_type_any, FALSE, nullptr, &list));
    EXPECT_EQ(1u, list->dwNumberOfItems);
    WlanFreeMemory(list);
}

TEST_F(WlanQueries, AnSsidMayHaveAnyBytes) {
    Change([](auto& pc) { pc.wlanNetworks[1].ssidBytes = "00FF41"; });
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    ASSERT_EQ(ERROR_SUCCESS, Connection(attributes));
    const DOT11_SSID& ssid = attributes.wlanAssociationAttributes.dot11Ssid;
    ASSERT_EQ(3u, ssid.uSSIDLength);
    EXPECT_EQ(0, std::memcmp(ssid.ucSSID, "\0\xFF\x41", 3));
}

TEST_F(WlanQueries, ARestartOfTheServiceInvalidatesTheHandle) {
    winhost::WlanService::Instance().Restart();
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    std::string xml;
    EXPECT_EQ(ERROR_INVALID_HANDLE, Connection(attributes));
    EXPECT_EQ(ERROR_INVALID_HANDLE, Profile(L"office", 4, xml));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfBssList());
    EXPECT_EQ(ERROR_INVALID_HANDLE, WlanCloseHandle(m_client, nullptr));
    OpenClient();
}

TEST_F(WlanQueries, WhatIsNoQuestionIsRefused) {
    DOT11_SSID tooLong{33, {}}, ssid{4, {}};
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfBssList(&tooLong, dot11_BSS_type_infrastructure));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfBssList(&ssid, dot11_BSS_type_any));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              WlanGetProfile(m_client, &m_guid, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, WlanQueryInterface(m_client, nullptr, wlan_intf_opcode_channel_number,
                                                          nullptr, nullptr, nullptr, nullptr));
}

}  // namespace
