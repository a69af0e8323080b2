#include "firmware/dash/Power.h"

#include <charconv>
#include <optional>

#include "firmware/dash/Cim.h"

namespace mpm {

namespace {

const std::string kService = "CIM_PowerManagementService";
const std::string kSystem = "CIM_ComputerSystem";
constexpr uint16_t kOn = 2;

enum ReturnValue { kCompleted = 0, kNotSupported = 1, kInvalidParameter = 5, kNoTimeout = 4098 };

struct PowerState {
    uint16_t state;
    MpmCommand command;
};

// The host knows one sleep, one restart, and one soft end, whichever of their variants a console asks for.
constexpr PowerState kStates[] = {
    {3, MPM_ZEL_CMD_HOST_SLEEP_LIGHT},      // sleep, light
    {4, MPM_ZEL_CMD_HOST_SLEEP_LIGHT},      // sleep, deep
    {5, MPM_ZEL_CMD_HOST_CYCLE_SOFT},       // power cycle, off soft
    {6, MPM_ZEL_CMD_HOST_OFF_HARD},         // off, hard
    {7, MPM_ZEL_CMD_HOST_HIBERNATE},        // hibernate
    {8, MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE},   // off, soft
    {10, MPM_ZEL_CMD_HOST_CYCLE_SOFT},      // master bus reset
    {12, MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE},  // off, soft graceful
};

CimProperty Key(const std::string& name, const std::string& value) {
    return {name, {value}, {}, true};
}

CimProperty Plain(const std::string& name, const std::string& value) {
    return {name, {value}, {}, false};
}

CimInstance System(const std::string& hostName) {
    return {kSystem,
            {Key("CreationClassName", kSystem), Key("Name", "ManagedSystem"),
             Plain("ElementName", hostName.empty() ? "Managed System" : hostName), Plain("EnabledState", "2"),
             Plain("RequestedState", "12")}};
}

CimInstance Service() {
    return {kService,
            {Key("SystemCreationClassName", kSystem), Key("SystemName", "ManagedSystem"),
             Key("CreationClassName", kService), Key("Name", "Power Management Service"),
             Plain("ElementName", "Power Management Service"), Plain("EnabledState", "5"),
             Plain("RequestedState", "12")}};
}

CimInstance Association(const std::string& hostName) {
    std::vector<std::string> available = {std::to_string(kOn)};
    for (const PowerState& each : kStates)
        available.push_back(std::to_string(each.state));
    return {"CIM_AssociatedPowerManagementService",
            {{"ServiceProvided", {}, {Service()}, true},
             {"UserOfService", {}, {System(hostName)}, true},
             Plain("PowerState", std::to_string(kOn)),  // the host itself carries the request to the firmware
             {"AvailableRequestedPowerStates", available, {}, false}}};
}

uint16_t StateIn(pugi::xml_node input) {
    const std::string text = TextIn(ClassChild(input, kService, "PowerState"));
    uint16_t state = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), state);
    if (error != std::errc() || stop != text.data() + text.size())
        throw SoapFault("s:Sender", "wsman:InvalidParameter", "PowerState is no number of 16 bits.");
    return state;
}

ReturnValue Change(pugi::xml_node input, const std::function<void(MpmCommand)>& command) {
    const auto parameter = [&](const char* name) { return ClassChild(input, kService, name); };
    const uint16_t state = StateIn(input);
    if (!RefersTo(parameter("ManagedElement"), System(""))) return kInvalidParameter;
    // Nothing but at once and without limit.
    if (!TextIn(parameter("TimeoutPeriod")).empty()) return kNoTimeout;
    if (parameter("Time").first_child()) return kNotSupported;
    if (state == kOn) return kCompleted;  // it is
    for (const PowerState& each : kStates) {
        if (each.state != state) continue;
        command(each.command);
        return kCompleted;
    }
    return kNotSupported;
}

}  // namespace

void OfferPower(Wsman& wsman, std::function<std::string()> hostName,
                std::function<void(MpmCommand)> command) {
    OfferCim(wsman, [hostName] {
        return std::vector<CimInstance>{System(hostName()), Service(), Association(hostName())};
    });
    wsman.Offer(CimUri(kService) + "/RequestPowerStateChange", [command](const SoapMessage& request,
                                                                         SoapAnswer& answer) {
        Addressed(request, {Service()});
        const pugi::xml_node input = ClassChild(request.Body(), kService, "RequestPowerStateChange_INPUT");
        if (!input)
            throw SoapFault("s:Sender", "wsman:SchemaValidationError",
                            "The body is no RequestPowerStateChange_INPUT.");
        answer.Address(request);
        pugi::xml_node output = answer.Body().append_child("p:RequestPowerStateChange_OUTPUT");
        output.append_attribute("xmlns:p") = CimUri(kService).c_str();
        AppendText(output, "p:ReturnValue", std::to_string(Change(input, command)));
    });
}

}  // namespace mpm
