// The package that the process runs from.
#include <appmodel.h>

#include "winhost/tests/PcFixture.h"

namespace {

constexpr char kFullName[] = "Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe";
constexpr char kFamilyName[] = "Tarvix.ZEL_8wekyb3d8bbwe";

class PackageIdentity : public PcFixture {
  protected:
    void StartPackaged(const std::string& path = R"(C:\WindowsApps\ZEL)",
                       const std::string& family = kFamilyName) {
        StartPc([&](auto& pc) { pc.package = {kFullName, path, family}; });
    }
};

using Function = LONG (*)(uint32_t*, WCHAR*);
constexpr Function kFunctions[] = {GetCurrentPackageFullName, GetCurrentPackagePath,
                                   GetCurrentPackageFamilyName};

TEST_F(PackageIdentity, AClassicProcessHasNone) {
    for (const Function function : kFunctions) {
        uint32_t length = 0;
        EXPECT_EQ(APPMODEL_ERROR_NO_PACKAGE, function(&length, nullptr));
        EXPECT_EQ(0u, length);
    }
}

TEST_F(PackageIdentity, EachTextIsToldWithItsLength) {
    StartPackaged();
    const std::wstring expected[] = {L"Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe", L"C:\\WindowsApps\\ZEL",
                                     L"Tarvix.ZEL_8wekyb3d8bbwe"};
    for (size_t i = 0; i < std::size(kFunctions); ++i) {
        uint32_t length = 0;
        EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, kFunctions[i](&length, nullptr));
        EXPECT_EQ(expected[i].size() + 1, length);
        std::wstring text(length, L'?');
        EXPECT_EQ(ERROR_SUCCESS, kFunctions[i](&length, text.data()));
        EXPECT_EQ(expected[i] + L'\0', text);
    }
}

TEST_F(PackageIdentity, ABufferThatIsTooSmallStaysAsItIsAndALengthIsNeeded) {
    StartPackaged();
    WCHAR buffer[] = L"????";
    uint32_t length = 4;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetCurrentPackagePath(&length, buffer));
    EXPECT_EQ(19u, length);
    EXPECT_STREQ(L"????", buffer);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetCurrentPackageFullName(nullptr, nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetCurrentPackageFullName(&length, nullptr));
}

TEST_F(PackageIdentity, APackageMayLackItsFamilyName) {
    StartPackaged(R"(C:\x)", "");
    uint32_t length = 0;
    EXPECT_EQ(APPMODEL_ERROR_NO_PACKAGE, GetCurrentPackageFamilyName(&length, nullptr));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetCurrentPackageFullName(&length, nullptr));
}

}  // namespace
