// The capability query with a runtime that is really unloaded at its end.
#include <gtest/gtest.h>

#include <filesystem>

#include "KVMDisplayMgrLib/src/EncodeCapability.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "tests/support/ServiceFixture.h"

class RuntimeUnloadTest : public ServiceFixture {
  protected:
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.libraryFolders = {std::filesystem::read_symlink("/proc/self/exe").parent_path().string()};
    }
};

TEST_F(RuntimeUnloadTest, NothingOfItIsTouchedAfterTheQuery) {
    LUXFactoryHelper factory;
    lux::LUXVersion current = 0, minimum = 0;
    testing::internal::CaptureStdout();
    QueryEncodeCapability(factory, kEncoderCapability, &current, &minimum);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(lux::MakeVersion(1, 4, 38, 0), current);
    EXPECT_EQ(nullptr, factory.GetFactory());
}
