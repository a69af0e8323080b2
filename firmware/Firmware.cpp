#include "firmware/Firmware.h"

#include <json/json.h>

#include "firmware/EventLoop.h"
#include "firmware/Processor.h"
#include "firmware/RequestLog.h"

namespace mpm {

class Firmware::Implementation {
  public:
    explicit Implementation(Settings settings) : m_processor(m_loop, m_log, std::move(settings)) {}
    ~Implementation() { m_loop.Stop(); }

    // Runs call(processor) on the firmware's thread and returns its result.
    template <class Call>
    auto On(const Call& call) {
        using Result = decltype(call(m_processor));
        if constexpr (std::is_void_v<Result>) {
            m_loop.Run([&] { call(m_processor); });
        } else {
            std::optional<Result> result;
            m_loop.Run([&] { result.emplace(call(m_processor)); });
            return std::move(*result);
        }
    }

    void SetFault(const RequestId& request, const std::function<void(Fault&)>& change) {
        On([&](Processor& processor) { processor.CurrentFaults().Set(request, change); });
    }

    RequestLog m_log;
    EventLoop m_loop;
    Processor m_processor;
};

Firmware::Firmware(Settings settings)
    : m_implementation(std::make_unique<Implementation>(std::move(settings))) {}
Firmware::~Firmware() = default;

void Firmware::Listen(const std::string& address) {
    m_implementation->On([&](Processor& processor) { processor.Listen(address); });
}

std::string Firmware::Address() const {
    return m_implementation->On([](Processor& processor) { return processor.Address(); });
}

Settings Firmware::CurrentSettings() const {
    return m_implementation->On([](Processor& processor) { return processor.Current(); });
}

void Firmware::Change(const std::function<void(Settings&)>& change) {
    m_implementation->On([&](Processor& processor) {
        Settings changed = processor.Current();
        change(changed);
        processor.Adopt(std::move(changed));
    });
}

std::vector<Request> Firmware::Requests() const {
    return m_implementation->m_log.All();
}
std::vector<Request> Firmware::Requests(const std::string& name) const {
    return m_implementation->m_log.All(&name);
}
size_t Firmware::Count(const std::string& name) const {
    return m_implementation->m_log.Count(name);
}

std::optional<Request> Firmware::AwaitRequest(const std::string& name,
                                              const std::function<bool(const Request&)>& matches,
                                              std::chrono::milliseconds patience) const {
    return m_implementation->m_log.Await(name, matches, patience);
}

bool Firmware::AwaitCount(const std::string& name, size_t count, std::chrono::milliseconds patience) const {
    return m_implementation->m_log.AwaitCount(name, count, patience);
}

void Firmware::Clear() {
    m_implementation->m_log.Clear();
}

Json::Value Firmware::Host() const {
    return m_implementation->On([](Processor& processor) { return processor.Host(); });
}

void Firmware::Send(MpmCommand command, Bytes payload, uint8_t trailer) {
    m_implementation->On([&](Processor& processor) { processor.Send(command, payload, trailer); });
}

void Firmware::SendRaw(Bytes message) {
    m_implementation->On([&](Processor& processor) { processor.SendRaw(message); });
}

void Firmware::SendDash(Bytes payload) {
    m_implementation->On([&](Processor& processor) { processor.SendStream(MPM_ZEL_CMD_DASH_DATA, payload); });
}

bool Firmware::HostListening() const {
    return m_implementation->m_processor.HostListening();
}
bool Firmware::AwaitHostListening(std::chrono::milliseconds patience) const {
    return m_implementation->m_processor.AwaitHostListening(patience);
}

void Firmware::Refuse(const RequestId& request, uint32_t win32Error, int times) {
    m_implementation->SetFault(request, [&](Fault& fault) {
        fault.error = times == 0 ? std::nullopt : std::optional(win32Error);
        fault.times = times;
    });
}

void Firmware::Delay(const RequestId& request, std::chrono::milliseconds by) {
    m_implementation->SetFault(request, [&](Fault& fault) { fault.delay = by; });
}

void Firmware::Hold(const RequestId& request) {
    m_implementation->SetFault(request, [](Fault& fault) { fault.held = true; });
}

void Firmware::Release(const RequestId& request) {
    m_implementation->SetFault(request, [](Fault& fault) { fault.held = false; });
    m_implementation->On([&](Processor& processor) { processor.Release(Faults::Names(request)); });
}

void Firmware::ResizeAnswer(const RequestId& request, size_t bytes) {
    m_implementation->SetFault(request, [&](Fault& fault) { fault.answerSize = bytes; });
}

void Firmware::ClearFaults() {
    m_implementation->On([](Processor& processor) {
        processor.CurrentFaults().Clear();
        processor.ReleaseAll();
    });
}

void Firmware::Vanish() {
    m_implementation->On([](Processor& processor) { processor.Vanish(); });
}

void Firmware::ComeBack() {
    m_implementation->On([](Processor& processor) { processor.ComeBack(); });
}

Json::Value Firmware::Screen() const {
    return m_implementation->On([](Processor& processor) {
        return processor.Screen() ? processor.Screen()->ToJson() : Json::Value();
    });
}

void Firmware::ResetScreenMeter() {
    m_implementation->On([](Processor& processor) {
        if (processor.Screen()) processor.Screen()->ResetMeter();
    });
}

void Firmware::SavePicture(const std::string& path) const {
    const auto picture = m_implementation->On(
        [](Processor& processor) { return processor.Screen() ? processor.Screen()->Newest() : nullptr; });
    if (!picture) throw std::runtime_error("there is no picture yet");
    picture->SaveAs(path);
}

void Firmware::ObserveScreen(std::shared_ptr<ScreenObserver> observer) {
    m_implementation->On([&](Processor& processor) { processor.ObserveScreen(std::move(observer)); });
}

void Firmware::OnDash(std::function<void(std::span<const uint8_t>)> take) {
    m_implementation->On([&](Processor& processor) { processor.OnDash(std::move(take)); });
}

void Firmware::Observe(std::function<void(const Event&)> observer) {
    m_implementation->On([&](Processor& processor) { processor.Observe(std::move(observer)); });
}

std::string Firmware::Certificate() const {
    return m_implementation->On([](Processor& processor) { return processor.Certificate(); });
}

}  // namespace mpm
