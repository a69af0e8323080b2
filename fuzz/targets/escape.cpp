// A display driver that answers anything: its private data, its path, and the output of an escape.
#include <algorithm>
#include <cstring>
#include <map>

#include "KVMDisplayMgrLib/src/LUXEscapeCall.h"
#include "fuzz/Input.h"

namespace {

fuzz::Input* g_answers = nullptr;

// One answer in four is a failure.
int32_t Status() {
    const uint8_t byte = g_answers->Byte();
    return byte % 4 == 3 ? static_cast<int32_t>(0xC0000000 | byte) : 0;
}

void Fill(void* to, size_t size, fuzz::Bytes bytes) {
    if (!bytes.empty()) std::memcpy(to, bytes.data(), std::min(size, bytes.size()));
}

int32_t WINAPI FuzzedOpen(d3dkmt::OpenAdapterFromLuid* arguments) {
    arguments->hAdapter = g_answers->Byte();
    return Status();
}
int32_t WINAPI FuzzedDevice(d3dkmt::CreateDevice* arguments) {
    arguments->hDevice = g_answers->Byte();
    return Status();
}
int32_t WINAPI FuzzedContext(d3dkmt::CreateContext* arguments) {
    fuzz::Require(arguments->NodeOrdinal < 64, "an engine is one of the table");
    arguments->hContext = g_answers->Byte();
    return Status();
}
template <class Arguments>
int32_t WINAPI FuzzedEnd(const Arguments*) {
    return Status();
}
// The parts that are used get bytes of their own, or few inputs would reach them.
int32_t WINAPI FuzzedQuery(const d3dkmt::QueryAdapterInfo* arguments) {
    auto* const data = static_cast<uint8_t*>(arguments->pPrivateDriverData);
    const size_t size = arguments->PrivateDriverDataSize;
    Fill(data, size, g_answers->Block());
    if (size > 4604 + 64) Fill(data + 4604, 64, g_answers->Block());
    if (size > 16460 + 4) Fill(data + 16460, 4, g_answers->Take(4));
    return Status();
}
int32_t WINAPI FuzzedEscape(const d3dkmt::Escape* arguments) {
    Fill(arguments->pPrivateDriverData, arguments->PrivateDriverDataSize, g_answers->LongBlock());
    return Status();
}

template <class Function>
FARPROC Address(Function* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

FARPROC FindFuzzed(const char* name) {
    static const std::map<std::string, FARPROC> functions = {
        {"D3DKMTOpenAdapterFromLuid", Address(&FuzzedOpen)},
        {"D3DKMTCloseAdapter", Address(&FuzzedEnd<d3dkmt::CloseAdapter>)},
        {"D3DKMTCreateDevice", Address(&FuzzedDevice)},
        {"D3DKMTDestroyDevice", Address(&FuzzedEnd<d3dkmt::DestroyDevice>)},
        {"D3DKMTCreateContext", Address(&FuzzedContext)},
        {"D3DKMTDestroyContext", Address(&FuzzedEnd<d3dkmt::DestroyContext>)},
        {"D3DKMTQueryAdapterInfo", Address(&FuzzedQuery)},
        {"D3DKMTEscape", Address(&FuzzedEscape)}};
    // One function in eight is missing.
    return g_answers->Byte() % 8 == 7 ? nullptr : functions.at(name);
}

}  // namespace

FUZZ_TARGET(escape) {
    fuzz::Input answers(input);
    g_answers = &answers;
    const LUXFactoryHelper factory;
    const d3dkmt::Calls calls(FindFuzzed);
    LUXEscapeCall escape(factory, calls);
    const std::vector<uint8_t> contextData(LUXEscapeCall::kContextDataSize);
    size_t steps = 0;
    for (; steps < 8 && !answers.AtEnd(); ++steps) {
        const uint8_t how = answers.Byte();
        const uint32_t core = answers.Byte();
        const lux::LUX_RESULT result = escape.Init({1, 2}, core, how & 1 ? contextData.data() : nullptr);
        fuzz::Require(result == lux::LUX_OK || result == lux::LUX_FAIL || result == lux::LUX_NOT_FOUND,
                      "a step fails with a known result");
        uint32_t scheduler = 0;
        const bool isThere = escape.GetSchedulerIdForRdn(core, &scheduler) == lux::LUX_OK;
        fuzz::Require(!isThere || scheduler == 41 || scheduler == 48 || scheduler == 49,
                      "a scheduler is one of three", std::to_string(scheduler));
        const std::u16string& path = escape.DriverPath();
        fuzz::Require(path.size() <= 260, "the driver's folder is bounded");
        fuzz::Require(path.empty() || path.back() == u'\\' || path.back() == u'/',
                      "the driver's folder ends with a separator");

        const std::vector<uint8_t> sent(answers.Byte(), 0x11);
        std::vector<uint8_t> output(answers.Byte(), 0x22);
        const std::vector<uint8_t> before = output;
        const int failed = escape.CallEscape(answers.Byte(), sent.data(), static_cast<uint32_t>(sent.size()),
                                             output.data(), static_cast<uint32_t>(output.size()), how & 2);
        fuzz::Require(failed == 0 || output == before, "a refused escape leaves the output");
    }
    escape.Terminate();
    fuzz::CountSteps(steps);
    g_answers = nullptr;
}
