// What a console sends to the simulated firmware, behind TLS: HTTP, SOAP, WS-Management. The answers don't
// depend on how the bytes are cut.
#include <algorithm>
#include <string>
#include <string_view>

#include "firmware/dash/HttpConnection.h"
#include "firmware/dash/Power.h"
#include "firmware/dash/Wsman.h"
#include "fuzz/Input.h"

namespace {

const mpm::Wsman& Service() {
    static const mpm::Wsman& service = [&]() -> const mpm::Wsman& {
        auto& made = *new mpm::Wsman;
        mpm::OfferIdentify(made, [] { return mpm::Identity{"Tarvix", "5.0.0.100", "1.2.0"}; });
        mpm::OfferPower(
            made, [] { return "pc-4711"; }, [](MpmCommand) {});
        return made;
    }();
    return service;
}

struct Talk {
    std::string answers;
    int requests = 0;
    bool ended = false;
};

// Names the newest enumeration of the talk. Its context is drawn at random, so that an input cannot hold it.
constexpr std::string_view kNewestContext = "newest-context";

void ReplaceAll(std::string& text, std::string_view from, std::string_view by) {
    for (size_t place = 0; (place = text.find(from, place)) != std::string::npos; place += by.size())
        text.replace(place, from.size(), by);
}

// Takes the context of the enumeration that the answer has begun.
void NoteContext(const std::string& answer, std::string& context) {
    constexpr std::string_view kBegin = "<wsen:EnumerationContext>", kEnd = "</wsen:EnumerationContext>";
    const size_t begin = answer.find(kBegin), end = answer.find(kEnd);
    if (begin < end && end != std::string::npos)
        context = answer.substr(begin + kBegin.size(), end - begin - kBegin.size());
}

// In pieces of growing size, from 1 up to `largest` and again.
Talk Hold(std::string_view bytes, size_t largest) {
    Talk talk;
    std::string context;
    mpm::HttpConnection connection([&](mpm::HttpRequest request) {
        ++talk.requests;
        fuzz::Require(request.body.size() <= mpm::HttpConnection::kMaxBody, "a body is bounded");
        fuzz::Require(request.target.size() <= mpm::HttpConnection::kMaxTarget, "a target is bounded");
        ReplaceAll(request.body, kNewestContext, context);
        const mpm::HttpResponse response = Service().Handle(request);
        NoteContext(response.body, context);
        fuzz::Require(response.status >= 200 && response.status < 600, "an answer has a status");
        return response;
    });
    for (size_t size = 1; !bytes.empty(); size = size % largest + 1) {
        talk.answers += connection.Feed(bytes.substr(0, size));
        bytes.remove_prefix(std::min(size, bytes.size()));
    }
    talk.ended = connection.Ended();
    if (talk.ended) fuzz::Require(connection.Feed("GET").empty(), "an ended connection is silent");
    return talk;
}

}  // namespace

FUZZ_TARGET(wsman) {
    const std::string bytes = fuzz::TextOf(input);
    const Talk whole = Hold(bytes, bytes.size() + 1);
    const Talk pieces = Hold(bytes, 7);
    fuzz::Require(whole.requests == pieces.requests, "the same requests, however they are cut");
    fuzz::Require(whole.ended == pieces.ended, "the same end, however it is cut");
    // Message ids and times differ, not their lengths.
    fuzz::Require(whole.answers.size() == pieces.answers.size(), "the same answers, however they are cut");
}
