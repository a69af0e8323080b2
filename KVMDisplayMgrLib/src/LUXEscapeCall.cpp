#include "KVMDisplayMgrLib/src/LUXEscapeCall.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "base/FieldText.h"
#include "base/WideText.h"

using namespace lux;

namespace {

constexpr size_t kPrefixSize = 76, kHeaderSize = 128;
constexpr uint32_t kHeaderVersion = 0x10000, kMagic = 0xBADCAFFE;

void Put(std::vector<uint8_t>& buffer, size_t offset, uint32_t word) {
    std::memcpy(&buffer[offset], &word, sizeof word);
}

// memcpy takes no null pointer, not even for 0 bytes.
void Copy(void* to, const void* from, size_t size) {
    if (size) std::memcpy(to, from, size);
}

}  // namespace

LUXEscapeCall::LUXEscapeCall(const LUXFactoryHelper& factory, const d3dkmt::Calls& call)
    : m_call(call),
      m_trace(factory, "KVMDisplayMgrLib/src/EscapeCall", "EscapeCall"),
      m_privateData(kPrivateDataSize) {}

LUXEscapeCall::~LUXEscapeCall() {
    Terminate();
}

LUX_RESULT LUXEscapeCall::Init(const LUID& adapterLuid, uint32_t rdnIndex, const void* contextData) {
    const LUX_RESULT ended = Terminate();
    if (ended != LUX_OK) m_trace.Failure(__LINE__, ended, "LUXEscapeCall::Init Terminate() failed");

    d3dkmt::OpenAdapterFromLuid open{adapterLuid, 0};
    int32_t status = m_call(open);
    m_escape.hAdapter = open.hAdapter;
    if (!open.hAdapter) {
        m_trace.Assertion(__LINE__, "adapterFromLuid.hAdapter != 0",
                          "LUXEscapeCall::Init openFromLuid.hAdapter failed status=%d", status);
        return LUX_FAIL;
    }
    d3dkmt::CreateDevice create{};
    create.hAdapter = m_escape.hAdapter;
    status = m_call(create);
    m_escape.hDevice = create.hDevice;
    if (!create.hDevice) {
        m_trace.Assertion(__LINE__, "createDev.hDevice != 0",
                          "LUXEscapeCall::Init createDev.hDevice failed status=%d", status);
        return LUX_FAIL;
    }
    if (!ReadPrivateData()) return LUX_FAIL;
    ReadDriverPath();
    ReadSchedulers();
    return contextData ? CreateContext(rdnIndex, contextData) : LUX_OK;
}

uint32_t LUXEscapeCall::PrivateWord(size_t offset) const {
    uint32_t word = 0;
    std::memcpy(&word, &m_privateData[offset], sizeof word);
    return word;
}

// True also for a driver without private data; the engine blocks must come when there are some.
bool LUXEscapeCall::ReadPrivateData() {
    d3dkmt::QueryAdapterInfo query{m_escape.hAdapter, d3dkmt::kDriverPrivate, m_privateData.data(),
                                   kFixedSize};
    if (m_call(query) != 0) return true;
    m_extended = 1;
    const size_t blocks = std::min<size_t>(PrivateWord(kEngineCountAt), kMaxEngineBlocks);
    query.PrivateDriverDataSize = static_cast<uint32_t>(kFixedSize + blocks * kEngineBlockSize);
    return m_call(query) == 0;
}

void LUXEscapeCall::ReadDriverPath() {
    d3dkmt::DriverName name{};
    if (m_call(d3dkmt::QueryAdapterInfo{m_escape.hAdapter, d3dkmt::kDriverName, &name, sizeof name}) != 0) {
        return;
    }
    m_driverPath = TextInField(name.UmdFileName);
    m_driverPath.resize(m_driverPath.find_last_of(u"\\/") + 1);
    m_driverFolder = ToUtf8(m_driverPath, 3 * std::size(name.UmdFileName));
}

void LUXEscapeCall::ReadSchedulers() {
    // There is no core without an engine.
    m_schedulerIds.assign(std::min<size_t>(PrivateWord(kCoreCountAt), kEngineTableSize), kNoScheduler);
    const auto set = [this](size_t core, uint32_t id) {
        if (core < m_schedulerIds.size()) m_schedulerIds[core] = id;
    };
    for (const uint8_t engine : std::span(m_privateData).subspan(kEngineTableAt, kEngineTableSize)) {
        if (engine == 41 || engine == 49) set(0, engine);
        if (engine == 48 || engine == 49) set(1, engine);
    }
}

LUX_RESULT LUXEscapeCall::CreateContext(uint32_t rdnIndex, const void* contextData) {
    uint32_t schedulerId = 0;
    const LUX_RESULT result = GetSchedulerIdForRdn(rdnIndex, &schedulerId);
    if (result != LUX_OK) {
        m_trace.Failure(
            __LINE__, result,
            "GetSchedulerIdForRdn(rdnIndex, &schedulerId): LUXEscapeCall::Init cannot GetSchedulerIdForRdn");
        return result;
    }
    const auto engines = std::span(m_privateData).subspan(kEngineTableAt, kEngineTableSize);
    std::vector<uint8_t> data(kContextDataSize);
    std::memcpy(data.data(), contextData, data.size());
    d3dkmt::CreateContext create{};
    create.hDevice = m_escape.hDevice;
    create.NodeOrdinal = static_cast<uint32_t>(std::ranges::find(engines, schedulerId) - engines.begin());
    create.pPrivateDriverData = data.data();
    create.PrivateDriverDataSize = kContextDataSize;
    if (m_call(create) != 0) return LUX_FAIL;
    m_escape.hContext = create.hContext;
    return LUX_OK;
}

LUX_RESULT LUXEscapeCall::GetSchedulerIdForRdn(uint32_t rdnIndex, uint32_t* schedulerId) const {
    if (!schedulerId) {
        m_trace.Assertion(__LINE__, "", "invalid pointer : pSchedulerId");
        return LUX_INVALID_POINTER;
    }
    if (rdnIndex >= m_schedulerIds.size() || m_schedulerIds[rdnIndex] == kNoScheduler) return LUX_NOT_FOUND;
    *schedulerId = m_schedulerIds[rdnIndex];
    return LUX_OK;
}

size_t LUXEscapeCall::HeadSize() const {
    return (m_extended ? kPrefixSize : 0) + kHeaderSize;
}

std::vector<uint8_t> LUXEscapeCall::Pack(uint32_t code, const void* input, uint32_t inputSize,
                                         const void* output, uint32_t outputSize, bool sized) const {
    const size_t total = HeadSize() + inputSize + outputSize + (sized ? 8 : 0);
    std::vector<uint8_t> buffer(total);
    if (m_extended) {
        Put(buffer, 0, 2);
        Put(buffer, 4, 0x10002);
        Put(buffer, 72, static_cast<uint32_t>(total - kPrefixSize));
    }
    const size_t header = HeadSize() - kHeaderSize;
    Put(buffer, header, kHeaderSize);
    Put(buffer, header + 4, kHeaderVersion);
    Put(buffer, header + 8, code);
    Put(buffer, header + 12, 1);
    Put(buffer, header + 76, kMagic);
    size_t at = HeadSize();
    if (sized) Put(buffer, std::exchange(at, at + 4), inputSize);
    Copy(buffer.data() + std::exchange(at, at + inputSize), input, inputSize);
    if (sized) Put(buffer, std::exchange(at, at + 4), outputSize);
    Copy(buffer.data() + at, output, outputSize);
    return buffer;
}

int LUXEscapeCall::CallEscape(uint32_t code, const void* input, uint32_t inputSize, void* output,
                              uint32_t outputSize, bool sized) {
    std::vector<uint8_t> buffer = Pack(code, input, inputSize, output, outputSize, sized);
    m_escape.pPrivateDriverData = buffer.data();
    m_escape.PrivateDriverDataSize = static_cast<uint32_t>(buffer.size());
    const int32_t status = m_call(m_escape);
    m_escape.pPrivateDriverData = nullptr;
    m_escape.PrivateDriverDataSize = 0;
    if (status != 0) {
        m_trace.Write(__LINE__, LUX_TRACE_DEBUG, "LUXEscapeCall::CallEscape failed status=%d", status);
        return 1;
    }
    Copy(output, buffer.data() + HeadSize() + inputSize + (sized ? 8 : 0), outputSize);
    return 0;
}

LUX_RESULT LUXEscapeCall::Terminate() {
    const auto end = [this](d3dkmt::Handle handle, auto arguments, const auto& trace) {
        const int32_t status = handle ? m_call(arguments) : 0;
        if (status != 0) trace(status);
    };
    end(m_escape.hContext, d3dkmt::DestroyContext{m_escape.hContext}, [this](int32_t status) {
        m_trace.Write(__LINE__, LUX_TRACE_WARNING,
                      "LUXEscapeCall::Terminate() D3DKMTDestroyContext status=%x", status);
    });
    end(m_escape.hDevice, d3dkmt::DestroyDevice{m_escape.hDevice}, [this](int32_t status) {
        m_trace.Write(__LINE__, LUX_TRACE_WARNING, "LUXEscapeCall::Terminate() D3DKMTDestroyDevice status=%x",
                      status);
    });
    end(m_escape.hAdapter, d3dkmt::CloseAdapter{m_escape.hAdapter}, [this](int32_t status) {
        m_trace.Write(__LINE__, LUX_TRACE_WARNING, "LUXEscapeCall::Terminate() D3DKMTCloseAdapter status=%x",
                      status);
    });
    m_escape = {};
    m_extended = 0;
    std::ranges::fill(m_privateData, uint8_t{0});
    m_schedulerIds.clear();
    m_driverPath.clear();
    m_driverFolder.clear();
    return LUX_OK;
}
