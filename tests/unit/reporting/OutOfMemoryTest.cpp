// A scan of the interfaces for which there is no memory.
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <cstddef>
#include <vector>

#include "reporting/NicInfo.h"
#include "tests/support/RefusedMemory.h"
#include "tests/unit/reporting/ReportingFixture.h"

namespace {

class ScanMemory : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        SetAdapters({Wired(4, "192.168.7.3", "192.168.7.1")});
    }
    // What a table of so many bytes takes.
    static size_t Block(size_t bytes) {
        return (bytes / sizeof(std::max_align_t) + 1) * sizeof(std::max_align_t);
    }
    static size_t WholeInterfaceTable() {
        ULONG size = 0;
        EXPECT_EQ(GetIfTable(nullptr, &size, FALSE), DWORD{ERROR_INSUFFICIENT_BUFFER});
        return size;
    }
    // The address is known, and nothing of its interface.
    static void ExpectAddressAlone() {
        const std::vector<NicInfo> list = GetNicInfoList();
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list[0].IPv4String, "192.168.7.3");
        EXPECT_EQ(list[0].Name, "");
    }
};

}  // namespace

TEST_F(ScanMemory, WithoutAnyForTheAddressesThereAreNone) {
    const RefusedMemory refused(Block(sizeof(MIB_IPADDRTABLE)));
    EXPECT_TRUE(GetNicInfoList().empty());
    EXPECT_TRUE(HasLine("INFO", "GetIpAddrTable returned empty"));
}

TEST_F(ScanMemory, WithoutAnyForTheFirstLookAtTheInterfacesTheAddressIsLeft) {
    ExpectError("Error allocating memory needed to call GetIfTable call 1");
    const RefusedMemory refused(Block(sizeof(MIB_IFTABLE)));
    ExpectAddressAlone();
}

TEST_F(ScanMemory, WithoutAnyForAllInterfacesTheAddressIsLeft) {
    ExpectError("Error allocating memory needed to call GetIfTable call 2");
    const RefusedMemory refused(Block(WholeInterfaceTable()));
    ExpectAddressAlone();
}

TEST_F(ScanMemory, WithoutAnyForOneInterfaceTheAddressIsLeft) {
    ExpectError("Error allocating memory to MIB_IFROW");
    const RefusedMemory refused(sizeof(MIB_IFROW));
    ExpectAddressAlone();
}
