// A PC with a radio, and a client of its WLAN service.
#pragma once

#include <wlanapi.h>

#include "winhost/core/Guid.h"
#include "winhost/tests/PcFixture.h"

class WlanFixture : public PcFixture {
  protected:
    static constexpr const char* kGuid = "{70A9067B-708F-443C-84BA-BC391FDBF72B}";

    void TearDown() override {
        if (m_client) {
            EXPECT_EQ(ERROR_SUCCESS, WlanCloseHandle(m_client, nullptr));
        }
        PcFixture::TearDown();
    }
    void OpenClient() {
        DWORD negotiated = 0;
        ASSERT_EQ(ERROR_SUCCESS, WlanOpenHandle(2, nullptr, &negotiated, &m_client));
        EXPECT_EQ(2u, negotiated);
    }

    HANDLE m_client = nullptr;
    GUID m_guid = *winhost::ParseGuid(kGuid);
};
