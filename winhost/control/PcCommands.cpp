// The PC around the service: its clock, its description, the gate and what is open.
#include <chrono>
#include <limits>

#include "winhost/control/Commands.h"
#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/io/MailboxDevice.h"
#include "winhost/pc/DescriptionJson.h"

namespace winhost {
namespace {

// A year: far enough for any scenario, and no overflow in nanoseconds.
constexpr int64_t kLongestMilliseconds = 366LL * 24 * 60 * 60 * 1000;

// ---- clock ----

Json::Value ReadClock(const Json::Value&) {
    const Clock& clock = Clock::Instance();
    Json::Value json(Json::objectValue);
    json["steadyMilliseconds"] =
        Json::Int64{std::chrono::duration_cast<std::chrono::milliseconds>(clock.Steady()).count()};
    json["fileTime"] = Json::UInt64{clock.FileTime()};
    return json;
}

std::chrono::milliseconds MillisecondsOf(const Json::Value& request, int64_t lowest = 0) {
    return std::chrono::milliseconds(NumberOf(request, "milliseconds", lowest, kLongestMilliseconds));
}

Json::Value AdvanceClock(const Json::Value& request) {
    Clock::Instance().Advance(MillisecondsOf(request));
    return ReadClock(request);
}

Json::Value SetWallOffset(const Json::Value& request) {
    Clock::Instance().SetWallOffset(MillisecondsOf(request, -kLongestMilliseconds));
    return ReadClock(request);
}

template <bool manual>
Json::Value SetManual(const Json::Value& request) {
    Clock::Instance().SetManual(manual);
    return ReadClock(request);
}

// ---- description ----

// RFC 7396: members of the patch replace, null removes.
void MergePatch(Json::Value& target, const Json::Value& patch) {
    if (!patch.isObject()) {
        target = patch;
        return;
    }
    if (!target.isObject()) target = Json::Value(Json::objectValue);
    for (const std::string& name : patch.getMemberNames()) {
        if (patch[name].isNull()) {
            target.removeMember(name);
        } else {
            MergePatch(target[name], patch[name]);
        }
    }
}

Json::Value ChangeDescription(const Json::Value& request) {
    const Json::Value& patch = request["patch"];
    if (!patch.isObject()) throw CommandError("\"patch\" has to be an object");
    for (const char* fixed : {"root", "controlSocket", "clockRate"}) {
        if (patch.isMember(fixed))
            throw CommandError(std::string(fixed) + ": cannot change while the PC runs");
    }
    Json::Value changed;
    Pc::Instance().Change([&](PcDescription& description) {
        changed = DescriptionToJson(description);
        MergePatch(changed, patch);
        description = DescriptionFromJson(changed);
    });
    return changed;
}

Json::Value Describe(const Json::Value&) {
    return DescriptionToJson(Pc::Instance().Description());
}

// ---- gate ----

std::string CallOf(const Json::Value& request) {
    const std::string call = request.isMember("call") ? TextOf(request, "call") : "";
    if (call.empty() || Gate::Knows(call)) return call;
    const std::string nearest = Gate::Nearest(call);
    throw CommandError("unknown call \"" + call + "\"" +
                       (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?"));
}

Json::Value CountCalls(const Json::Value& request) {
    Json::Value json(Json::objectValue);
    json["calls"] = Json::UInt64{Gate::Instance().Count(CallOf(request))};
    json["failures"] = Json::UInt64{Gate::Instance().Failures()};
    return json;
}

Json::Value FailCall(const Json::Value& request) {
    const auto n = NumberOf(request, "n", 1, std::numeric_limits<int64_t>::max());
    const uint32_t error = Unsigned32Of(request, "error", 1);
    Gate::Instance().FailNth(CallOf(request), static_cast<uint64_t>(n), error, FlagOf(request, "forEver"));
    return CountCalls(request);
}

Json::Value DelayCall(const Json::Value& request) {
    const std::string call = CallOf(request);
    if (call.empty()) throw CommandError("\"call\" has to name a call");
    Gate::Instance().Delay(call, MillisecondsOf(request));
    return CountCalls(request);
}

Json::Value ResetGate(const Json::Value& request) {
    Gate::Instance().Reset();
    return CountCalls(request);
}

// ---- what is open ----

Json::Value Handles(const Json::Value&) {
    Json::Value json(Json::objectValue);
    json["open"] = Json::UInt64{HandleTable::Instance().Size()};
    return json;
}

Json::Value Mailbox(const Json::Value&) {
    const MailboxDevice& device = MailboxDevice::Instance();
    Json::Value json(Json::objectValue);
    json["openHandles"] = Json::UInt64{device.OpenHandles()};
    json["pendingReads"] = Json::UInt64{device.PendingReads()};
    json["pendingRequests"] = Json::UInt64{device.PendingRequests()};
    return json;
}

}  // namespace

std::vector<Command> PcCommands() {
    using Kind = Argument::Kind;
    const Argument anyCall{"call", Kind::Text, "the call's name, or an empty text for any"};
    return {
        {"clock read", "the readings of the PC's clock", ReadClock},
        {"clock advance",
         "moves the clock forward",
         AdvanceClock,
         {{"milliseconds", Kind::Number, "by so many"}}},
        {"clock wall-offset",
         "moves the wall clock alone",
         SetWallOffset,
         {{"milliseconds", Kind::Number, "by so many from the real time, back with a negative number"}}},
        {"clock manual", "lets the clock stand still but for advance", SetManual<true>},
        {"clock running", "lets the clock follow the machine", SetManual<false>},
        {"description", "the PC's description as it stands", Describe},
        {"change",
         "changes the PC's description and answers with it",
         ChangeDescription,
         {{"patch", Kind::Json, "a JSON merge patch: {\"adapters\": [], \"connectedFlags\": 0}"}}},
        {"gate fail",
         "makes the nth call from now fail",
         FailCall,
         {anyCall,
          {"n", Kind::Number, "1 is the next"},
          {"error", Kind::Number, "Windows' error number"},
          {"forEver", Kind::Flag, "and all after it"}}},
        {"gate delay",
         "holds each such call",
         DelayCall,
         {{"call", Kind::Text, "the call's name"},
          {"milliseconds", Kind::Number, "for so long, in real time"}}},
        {"gate count",
         "counts the calls and failures since the last reset",
         CountCalls,
         {{"call", Kind::Text, "the call's name; without it all", false}}},
        {"gate reset", "lets all calls pass, and counts from 0", ResetGate},
        {"mailbox", "what is open and pending on the mailbox device", Mailbox},
        {"handles", "how many handles and sockets are open", Handles},
    };
}

}  // namespace winhost
