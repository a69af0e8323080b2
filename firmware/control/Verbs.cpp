#include "firmware/control/Verbs.h"

#include <charconv>
#include <functional>
#include <map>

#include "firmware/Catalogue.h"
#include "firmware/Hex.h"
#include "firmware/Report.h"

namespace mpm::control {

namespace {

Json::Value Done(const std::string& text) {
    Json::Value answer;
    answer["text"] = text;
    return answer;
}

Json::Value Send(Firmware& firmware, const Json::Value& request) {
    const std::vector<uint8_t> bytes = FromHex(request["payload"].asString());
    if (request["raw"].asBool())
        firmware.SendRaw(bytes);
    else
        firmware.Send(MpmCommand(request["command"].asUInt()), bytes, uint8_t(request["trailer"].asUInt()));
    return Done(firmware.HostListening() ? "sent" : "waits: no host listens");
}

Json::Value Set(Firmware& firmware, const Json::Value& request) {
    firmware.Change([&](Settings& settings) {
        const Json::Value& values = request["values"];
        for (const std::string& key : values.getMemberNames())
            settings.Set(key, values[key].asString());
    });
    return Done("set");
}

Json::Value Enrol(Firmware& firmware, Enrolments& enrolments, const Json::Value& request) {
    EnrolmentNames names;
    names.host = request["host"].asString();
    names.authority = request["authority"].asString();
    names.certificateTemplate = request["template"].asString();
    names.subject = request["subject"].asString();
    if (names.subject.empty()) throw std::invalid_argument("a certificate needs a subject");
    firmware.Send(MPM_ZEL_CMD_CSR, Bytes::Of(enrolments.Begin(names)));
    return Done(firmware.HostListening() ? "sent" : "waits: no host listens");
}

uint32_t Number(const std::string& what, const std::string& text) {
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size())
        throw std::invalid_argument(what + " must be a number, not \"" + text + "\"");
    return number;
}

RequestId Which(const std::string& text) {
    uint32_t code = 0;
    if (!text.starts_with("0x")) return text;
    const auto [stop, error] = std::from_chars(text.data() + 2, text.data() + text.size(), code, 16);
    if (error != std::errc() || stop != text.data() + text.size()) return text;
    return code;
}

void Refuse(Firmware& firmware, const std::vector<std::string>& words) {
    const bool forever = words.size() < 3 || words[2] == "forever";
    firmware.Refuse(Which(words[0]), Number("the error", words[1]),
                    forever ? kForever : int(Number("times", words[2])));
}

struct FaultVerb {
    size_t minWords, maxWords;
    const char* usage;
    std::function<void(Firmware&, const std::vector<std::string>&)> run;
};

const std::map<std::string, FaultVerb>& FaultVerbs() {
    static const std::map<std::string, FaultVerb> verbs = {
        {"refuse", {2, 3, "refuse REQUEST ERROR [TIMES]", Refuse}},
        {"delay",
         {2, 2, "delay REQUEST MILLISECONDS",
          [](Firmware& firmware, const auto& words) {
              firmware.Delay(Which(words[0]), std::chrono::milliseconds(Number("the delay", words[1])));
          }}},
        {"hold",
         {1, 1, "hold REQUEST",
          [](Firmware& firmware, const auto& words) { firmware.Hold(Which(words[0])); }}},
        {"release",
         {1, 1, "release REQUEST",
          [](Firmware& firmware, const auto& words) { firmware.Release(Which(words[0])); }}},
        {"answer-size",
         {2, 2, "answer-size REQUEST BYTES",
          [](Firmware& firmware, const auto& words) {
              firmware.ResizeAnswer(Which(words[0]), Number("the size", words[1]));
          }}},
        {"vanish", {0, 0, "vanish", [](Firmware& firmware, const auto&) { firmware.Vanish(); }}},
        {"come-back", {0, 0, "come-back", [](Firmware& firmware, const auto&) { firmware.ComeBack(); }}},
        {"clear", {0, 0, "clear", [](Firmware& firmware, const auto&) { firmware.ClearFaults(); }}},
    };
    return verbs;
}

Json::Value MakeFault(Firmware& firmware, const Json::Value& request) {
    std::vector<std::string> words;
    for (const Json::Value& word : request["words"])
        words.push_back(word.asString());
    const std::string name = words.empty() ? "" : words[0];
    const auto found = FaultVerbs().find(name);
    if (found == FaultVerbs().end()) {
        std::string known;
        for (const auto& [verb, unused] : FaultVerbs())
            known += (known.empty() ? "" : ", ") + verb;
        throw std::invalid_argument("there is no fault \"" + name + "\"; known: " + known);
    }
    words.erase(words.begin());
    const FaultVerb& verb = found->second;
    if (words.size() < verb.minWords || words.size() > verb.maxWords)
        throw std::invalid_argument(std::string("usage: mpmsim fault --control PATH ") + verb.usage);
    verb.run(firmware, words);
    return Done("done");
}

Json::Value Show(Firmware& firmware, const Enrolments& enrolments) {
    Json::Value answer;
    answer["address"] = firmware.Address();
    answer["host"] = firmware.Host();
    if (const Json::Value certificate = enrolments.Last(); !certificate.isNull())
        answer["host"]["certificate"] = certificate;
    const Settings settings = firmware.CurrentSettings();
    answer["settings"] = settings.ToJson();
    answer["levels"] = LevelsAsJson(settings.uVORKVersion);
    return answer;
}

Json::Value Screen(Firmware& firmware, const Json::Value& request) {
    Json::Value answer;
    answer["screen"] = firmware.Screen();
    if (answer["screen"].isNull())
        throw std::invalid_argument("the screen is not served: Kvm is not \"screen\"");
    if (request.isMember("picture")) firmware.SavePicture(request["picture"].asString());
    if (request["reset"].asBool()) firmware.ResetScreenMeter();
    return answer;
}

Json::Value Requests(Firmware& firmware, const Json::Value&) {
    Json::Value answer;
    answer["requests"] = Json::Value(Json::arrayValue);
    const Settings settings = firmware.CurrentSettings();
    for (const Request& request : firmware.Requests())
        answer["requests"].append(JsonOf(request, SecretsOf(settings, request.name)));
    return answer;
}

}  // namespace

Json::Value Handle(Firmware& firmware, Enrolments& enrolments, const Json::Value& request) {
    if (request["verb"] == "enrol") return Enrol(firmware, enrolments, request);
    if (request["verb"] == "show") return Show(firmware, enrolments);
    static const std::map<std::string, Json::Value (*)(Firmware&, const Json::Value&)> verbs = {
        {"send", Send}, {"set", Set}, {"fault", MakeFault}, {"screen", Screen}, {"requests", Requests}};
    const auto found = verbs.find(request["verb"].asString());
    if (found == verbs.end()) throw std::invalid_argument("the verb is not known");
    return found->second(firmware, request);
}

}  // namespace mpm::control
