// What a browser sends to the page of mpmsim, and what the page's server makes of the log, of records and of
// frames. The first byte chooses one of these.
#include <json/json.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "firmware/Encode.h"
#include "firmware/Hex.h"
#include "firmware/web/Access.h"
#include "firmware/web/FrameMessage.h"
#include "firmware/web/Inbox.h"
#include "firmware/web/LogLine.h"
#include "firmware/web/Messages.h"
#include "fuzz/Input.h"
#include "fuzz/support/Names.h"
#include "testbed/Json.h"

namespace {

using namespace mpm;

// Bytes that end where the input does, so that a read behind them is seen.
struct Exact {
    explicit Exact(fuzz::Bytes from) : size(from.size()), bytes(std::make_unique<uint8_t[]>(size)) {
        std::copy(from.begin(), from.end(), bytes.get());
    }
    fuzz::Bytes View() const { return {bytes.get(), size}; }

    size_t size;
    std::unique_ptr<uint8_t[]> bytes;
};

bool IsAsciiLine(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](uint8_t c) { return c >= 0x20 && c < 0x80; });
}

void TakeMessage(const std::string& text) {
    try {
        const web::PageMessage message = web::PageMessage::Parse(text);
        const Json::Value request = web::ControlRequestOf(message);
        fuzz::Require(web::IsControlVerb(message.verb),
                      "only a verb of the control socket becomes a request");
        fuzz::Require(request["verb"] == message.verb, "a request has the verb of its message");
        fuzz::Require(!request.isMember("picture"), "no file is written");
        if (message.members.isMember("fields"))
            fuzz::Require(FromHex(request["payload"].asString()).size() <= kMaxMessagePayload,
                          "the payload of a record fits a message");
    } catch (const std::exception& error) {
        const std::string refusal = web::RefusalText(Json::Value(), error.what());
        fuzz::Require(*error.what() != 0, "a refusal says why");
        fuzz::Require(IsAsciiLine(refusal) && !testbed::ParseObject(refusal)["ok"].asBool(),
                      "a refusal is one line of ASCII", refusal);
    }
}

void TakeLogLine(const std::string& text) {
    const std::string json = web::LogLine::Parse(text).ToJson(1);
    fuzz::Require(IsAsciiLine(json), "a line of the log becomes one line of ASCII", json);
    testbed::ParseObject(json);
}

// What is decoded from a record is encoded to a record of the same values, unless a preview has lost some.
void TakeRecord(const RecordLayout& layout, fuzz::Bytes bytes) {
    if (bytes.size() < layout.minSize || bytes.size() > layout.maxSize) return;
    const Json::Value values = Decode(layout.fields, bytes, Secrets::Shown);
    std::vector<uint8_t> record;
    try {
        record = Encode(layout, values);
    } catch (const std::invalid_argument&) {
        return;
    }
    fuzz::Require(record.size() >= layout.minSize && record.size() <= layout.maxSize,
                  "a record has a size that its reader takes", layout.name);
    fuzz::Require(Decode(layout.fields, record, Secrets::Shown) == values, "a record keeps its values",
                  testbed::Compact(values));
}

void TakeEvent(const Event& event) {
    const web::WireEntry entry(event, Secrets::Masked);
    const std::string json = entry.ToJson();
    fuzz::Require(IsAsciiLine(json), "an event becomes one line of ASCII", json);
    try {
        fuzz::Require(entry.Hex().size() == 2 * event.data.size(), "each byte is shown or masked");
    } catch (const std::invalid_argument&) {
        // Bytes whose meaning is not known are not shown.
    }
}

void TakeRequest(uint32_t code, fuzz::Bytes bytes) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (request.code == code) {
            TakeRecord(request.input, bytes);
            TakeEvent({Event::Kind::Request, request.name, code, bytes, {}, {}});
        }
}

void TakeCommand(uint8_t number, fuzz::Bytes bytes) {
    for (const FirmwareCommand& command : kFirmwareCommands)
        if (command.number == number) TakeRecord(command.payload, bytes);
    TakeEvent({Event::Kind::Message, "command", number, bytes, {}, {}});
}

void TakeHeaders(const std::string& text) {
    const std::string token = "0123456789abcdef0123456789abcdef";
    const web::Access access(token, {"127.0.0.1", 8080});
    if (access.IsOwnHost(text)) fuzz::Require(text.ends_with(":8080"), "the own host has the own port", text);
    if (access.IsOwnOrigin(text)) fuzz::Require(text.starts_with("http://"), "an origin has a scheme", text);
    fuzz::Require(!access.Below(text) || text.starts_with("/" + token + "/"), "a path begins with the token",
                  text);
    try {
        const std::string host = web::LoopbackAddress::Parse(text).host;
        fuzz::Require(host == "127.0.0.1" || host == "::1", "only the loopback interface is served", text);
    } catch (const std::invalid_argument&) {
        // It is no address.
    }
}

}  // namespace

FUZZ_TARGET(webrequests) {
    fuzz::Input in(input);
    const uint8_t kind = in.Byte();
    const uint8_t number = kind == 2 || kind == 3 ? in.Byte() : 0;
    const Exact rest(in.Rest());
    switch (kind) {
        case 0:
            return TakeMessage(fuzz::TextOf(rest.View()));
        case 1:
            return TakeLogLine(fuzz::TextOf(rest.View()));
        case 2:
            return TakeRequest(fuzz::CodeOfFunction(number), rest.View());
        case 3:
            return TakeCommand(number, rest.View());
        case 4:
            web::IsKeyFrame(rest.View());
            return;
        default:
            return TakeHeaders(fuzz::TextOf(rest.View()));
    }
}
