// What a page can ask for.
#include "firmware/Catalogue.h"
#include "firmware/Report.h"
#include "firmware/web/Lab.h"

namespace mpm::web {

namespace {

constexpr const char* kVersion = "1";
// A longer one is no matter of a page: the control socket has it.
constexpr size_t kLongestAnswer = 2u << 20;
// Some questions last: a service may take its time to stop.
constexpr std::chrono::seconds kPcPatience{120}, kHelpPatience{2};

Json::Value HelpRequest() {
    Json::Value request;
    request["command"] = "help";
    return request;
}

}  // namespace

void Lab::Receive(PageId page, std::string_view text) {
    Json::Value id;
    try {
        PageMessage message = PageMessage::Parse(text);
        id = Json::UInt64(message.id);
        Act(page, std::move(message));
    } catch (const std::exception& error) {
        Answer(page, RefusalText(id, error.what()));
    }
}

void Lab::Act(PageId page, PageMessage message) {
    if (message.verb == "hello") return Greet(page, message);
    if (message.verb == "pc") return AskPc(page, message);
    if (message.verb == "watch") return WatchScreen(page, message);
    if (message.verb == "hold") return Hold(page, message);
    if (message.verb == "key" || message.verb == "pointer") return Input(page, message);
    if (message.verb == "bytes") return Answer(page, AnswerText(message.id, Bytes(message)));
    if (!IsControlVerb(message.verb))
        throw std::invalid_argument("\"" + message.verb.substr(0, 40) + "\" is not known");
    Control(page, message);
}

void Lab::AnswerLater(PageId page, std::string text) {
    Post([this, page, text = std::move(text)]() mutable {
        if (Page* const found = Find(page)) --found->waiting;
        m_hostMayDiffer = true;
        Answer(page, std::move(text));
    });
}

void Lab::RunOn(Worker& worker, PageId page, uint64_t id, std::function<Json::Value()> work) {
    const bool posted = worker.Post([this, page, id, work = std::move(work)] {
        std::string text;
        try {
            text = AnswerText(id, work());
            if (text.size() > kLongestAnswer)
                text = RefusalText(Json::UInt64(id), "the answer is too long for a page; mpmsim has it");
        } catch (const std::exception& error) {
            text = RefusalText(Json::UInt64(id), error.what());
        }
        AnswerLater(page, std::move(text));
    });
    if (!posted) throw std::runtime_error("the firmware has too many requests of pages to serve");
    ++m_pages.at(page).waiting;
}

void Lab::Control(PageId page, const PageMessage& message) {
    RunOn(m_worker, page, message.id,
          [this, request = ControlRequestOf(message)] { return m_handle(request); });
}

void Lab::AskPc(PageId page, const PageMessage& message) {
    if (!m_pc) throw std::invalid_argument("there is no simulated PC to ask");
    const Json::Value& request = message.members["request"];
    if (!request.isObject()) throw std::invalid_argument("\"request\" has to be an object");
    ++m_pages.at(page).waiting;
    m_pc->Ask(request, kPcPatience, [this, page, id = message.id](const Json::Value& answer) {
        const Json::Value &ok = answer["ok"], &error = answer["error"];
        AnswerLater(page,
                    ok.isBool() && ok.asBool()
                        ? AnswerText(id, answer["result"])
                        : RefusalText(Json::UInt64(id), error.isString() ? error.asString() : "no answer"));
    });
}

Json::Value Lab::Bytes(const PageMessage& message) const {
    const WireEntry* entry = m_wire.Find(NumberOf(message.members, "serial", UINT64_MAX));
    if (!entry) throw std::invalid_argument("the entry is not kept any more");
    Json::Value result;
    result["hex"] = entry->Hex();
    return result;
}

// The PC's commands are a part of the answer, but a PC that does not answer soon is one without them.
void Lab::Greet(PageId page, const PageMessage& message) {
    if (m_pages.at(page).greeted) throw std::invalid_argument("the page has said hello already");
    if (message.members.isMember("since")) NumberOf(message.members, "since", UINT64_MAX);
    if (!m_pc || !m_pcHelp.isNull()) return FinishGreeting(page, message);
    ++m_pages.at(page).waiting;
    m_pc->Ask(HelpRequest(), kHelpPatience, [this, page, message](const Json::Value& answer) {
        Post([this, page, message, answer] {
            if (answer["result"].isObject()) m_pcHelp = answer["result"];
            Page* const found = Find(page);
            if (!found) return;
            --found->waiting;
            if (!found->greeted) FinishGreeting(page, message);
        });
    });
}

void Lab::FinishGreeting(PageId id, const PageMessage& message) {
    DrainInbox();
    Json::Value result;
    result["version"] = kVersion;
    result["catalogue"] = TablesAsJson();
    result["features"] = Features();
    result["pcHelp"] = m_pcHelp;
    Answer(id, AnswerText(message.id, result));
    Page& page = m_pages.at(id);
    page.greeted = true;
    // A number that was not given yet is one of an earlier firmware.
    const Json::Value& since = message.members["since"];
    if (since.isUInt64() && since.asUInt64() <= m_wire.Newest()) page.wire = since.asUInt64();
}

Json::Value Lab::Features() const {
    Json::Value features;
    features["pc"] = m_pc.has_value();
    features["log"] = m_follower.has_value();
    features["screen"] = true;
    features["vnc"] = m_options.vnc;
    if (!m_options.dash.empty()) features["dash"] = m_options.dash;
    return features;
}

}  // namespace mpm::web
