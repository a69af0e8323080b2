#include "tests/unit/KVMDisplayMgrLib/DriverDouble.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

Driver g_driver;

namespace {

constexpr int32_t kRefused = static_cast<int32_t>(0xC0000001);

int32_t Answer(const char* call) {
    g_driver.calls.push_back(call);
    return g_driver.refused.contains(call) ? kRefused : 0;
}

int32_t WINAPI Open(d3dkmt::OpenAdapterFromLuid* arguments) {
    g_driver.luid = arguments->AdapterLuid;
    if (Answer("Open")) return kRefused;
    arguments->hAdapter = 0xA1;
    return 0;
}
int32_t WINAPI Close(const d3dkmt::CloseAdapter* arguments) {
    EXPECT_EQ(0xA1u, arguments->hAdapter);
    return Answer("Close");
}
int32_t WINAPI MakeDevice(d3dkmt::CreateDevice* arguments) {
    EXPECT_EQ(0xA1u, arguments->hAdapter);
    // A driver may report success and give no handle.
    if (Answer("CreateDevice") == 0 && !g_driver.refused.contains("DeviceHandle")) arguments->hDevice = 0xD1;
    return g_driver.refused.contains("CreateDevice") ? kRefused : 0;
}
int32_t WINAPI EndDevice(const d3dkmt::DestroyDevice* arguments) {
    EXPECT_EQ(0xD1u, arguments->hDevice);
    return Answer("DestroyDevice");
}
int32_t WINAPI MakeContext(d3dkmt::CreateContext* arguments) {
    if (Answer("CreateContext")) return kRefused;
    g_driver.context = *arguments;
    const auto* const data = static_cast<const uint8_t*>(arguments->pPrivateDriverData);
    g_driver.contextData.assign(data, data + arguments->PrivateDriverDataSize);
    arguments->hContext = 0xC1;
    return 0;
}
int32_t WINAPI EndContext(const d3dkmt::DestroyContext* arguments) {
    EXPECT_EQ(0xC1u, arguments->hContext);
    return Answer("DestroyContext");
}
int32_t WINAPI Query(const d3dkmt::QueryAdapterInfo* arguments) {
    EXPECT_EQ(0xA1u, arguments->hAdapter);
    if (arguments->Type == d3dkmt::kDriverName) {
        auto* const name = static_cast<d3dkmt::DriverName*>(arguments->pPrivateDriverData);
        EXPECT_EQ(524u, arguments->PrivateDriverDataSize);
        if (Answer("QueryName") || g_driver.path.empty()) return kRefused;
        g_driver.path.copy(name->UmdFileName, std::size(name->UmdFileName));
        return 0;
    }
    EXPECT_EQ(d3dkmt::kDriverPrivate, arguments->Type);
    g_driver.queries.push_back(arguments->PrivateDriverDataSize);
    const bool isRefused = static_cast<int>(g_driver.queries.size()) == g_driver.refuseQuery;
    if (Answer("QueryPrivate") || g_driver.privateData.empty() || isRefused) return kRefused;
    std::memcpy(arguments->pPrivateDriverData, g_driver.privateData.data(),
                std::min<size_t>(arguments->PrivateDriverDataSize, g_driver.privateData.size()));
    return 0;
}
int32_t WINAPI Escape(const d3dkmt::Escape* arguments) {
    g_driver.lastEscape = *arguments;
    auto* const data = static_cast<uint8_t*>(arguments->pPrivateDriverData);
    const size_t size = arguments->PrivateDriverDataSize;
    g_driver.escapes.emplace_back(data, data + size);
    if (Answer("Escape")) return kRefused;
    std::copy(g_driver.answer.begin(), g_driver.answer.end(), data + size - g_driver.answer.size());
    return 0;
}

template <class Function>
FARPROC Address(Function* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

}  // namespace

FARPROC FindDriverFunction(const char* name) {
    const std::map<std::string, FARPROC> functions = {
        {"D3DKMTOpenAdapterFromLuid", Address(&Open)},  {"D3DKMTCloseAdapter", Address(&Close)},
        {"D3DKMTCreateDevice", Address(&MakeDevice)},   {"D3DKMTDestroyDevice", Address(&EndDevice)},
        {"D3DKMTCreateContext", Address(&MakeContext)}, {"D3DKMTDestroyContext", Address(&EndContext)},
        {"D3DKMTQueryAdapterInfo", Address(&Query)},    {"D3DKMTEscape", Address(&Escape)}};
    return g_driver.missing.contains(name) ? nullptr : functions.at(name);
}
