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

Json::Value ReadClock() {
    const Clock& clock = Clock::Instance();
    Json::Value json(Json::objectValue);
    json["steadyMilliseconds"] =
        Json::Int64{std::chrono::duration_cast<std::chrono::milliseconds>(clock.Steady()).count()};
    json["fileTime"] = Json::UInt64{clock.FileTime()};
    return json;
}

Json::Value SetClock(const Json::Value& request) {
    Clock& clock = Clock::Instance();
    const std::string action = TextOf(request, "action");
    if (action == "advance") {
        clock.Advance(std::chrono::milliseconds(NumberOf(request, "milliseconds", 0, kLongestMilliseconds)));
    } else if (action == "wall-offset") {
        clock.SetWallOffset(std::chrono::milliseconds(
            NumberOf(request, "milliseconds", -kLongestMilliseconds, kLongestMilliseconds)));
    } else if (action == "manual" || action == "running") {
        clock.SetManual(action == "manual");
    } else if (action != "read") {
        throw CommandError("unknown action \"" + action + "\"");
    }
    return ReadClock();
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

Json::Value SetGate(const Json::Value& request) {
    Gate& gate = Gate::Instance();
    const std::string action = TextOf(request, "action");
    const std::string call = request.isMember("call") ? TextOf(request, "call") : "";
    if (action == "fail") {
        const auto n = NumberOf(request, "n", 1, std::numeric_limits<int64_t>::max());
        const auto error = NumberOf(request, "error", 1, std::numeric_limits<uint32_t>::max());
        gate.FailNth(call, static_cast<uint64_t>(n), static_cast<uint32_t>(error),
                     FlagOf(request, "forEver"));
    } else if (action == "delay") {
        gate.Delay(TextOf(request, "call"),
                   std::chrono::milliseconds(NumberOf(request, "milliseconds", 0, kLongestMilliseconds)));
    } else if (action == "reset") {
        gate.Reset();
    } else if (action != "count") {
        throw CommandError("unknown action \"" + action + "\"");
    }
    Json::Value json(Json::objectValue);
    json["calls"] = Json::UInt64{gate.Count(call)};
    json["failures"] = Json::UInt64{gate.Failures()};
    return json;
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
    return {
        {"clock",
         "action (advance, manual, running, wall-offset, read), milliseconds: moves the PC's clock and "
         "answers with its "
         "readings",
         SetClock},
        {"description", "the PC's description as it stands", Describe},
        {"change", "patch: a JSON merge patch over the description; answers with what came of it",
         ChangeDescription},
        {"gate",
         "action (fail with call, n, error, forEver; delay with call, milliseconds; count with call; reset): "
         "arms the "
         "calls of the service; answers with the calls counted and failed",
         SetGate},
        {"mailbox", "what is open and pending on the mailbox device", Mailbox},
        {"handles", "how many handles and sockets are open", Handles},
    };
}

}  // namespace winhost
