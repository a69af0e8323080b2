// What the simulated firmware makes of a host's request, whatever its bytes: the record field by field, as
// JSON and as a line.
#include <json/json.h>

#include <string>

#include "firmware/Catalogue.h"
#include "firmware/Report.h"
#include "fuzz/Input.h"
#include "fuzz/support/Names.h"

namespace {

bool IsPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

uint32_t CodeOf(fuzz::Input& input) {
    const uint8_t function = input.Byte();
    return function < 0x80 ? fuzz::CodeOfFunction(function) : input.Number();
}

// The most that a field of fixed size can say, for each byte of it, and for each field its name.
constexpr size_t kMostPerByte = 8;
constexpr size_t kMostForTheRest = 8192;

}  // namespace

FUZZ_TARGET(hostrecords) {
    fuzz::Input from(input);
    mpm::Request request;
    request.code = CodeOf(from);
    const bool isCommand = from.Byte() & 1;
    const fuzz::Bytes data = from.Rest();
    request.data.assign(data.begin(), data.end());
    const MailboxRequest* const operation = mpm::FindRequest(request.code, data.size());
    request.name = operation ? operation->name : mpm::CodeText(request.code);

    mpm::Event event;
    event.name = request.name;
    event.code = request.code;
    event.data = data;
    event.kind = isCommand ? mpm::Event::Kind::Message : mpm::Event::Kind::Request;
    if (isCommand) event.code = request.code & 0xFF;

    const Json::Value json = mpm::JsonOf(event);
    const std::string line = mpm::LineOf(json);
    fuzz::Require(json["bytes"].asUInt64() == data.size(), "the record's size is shown");
    fuzz::Require(line.size() <= kMostPerByte * data.size() + kMostForTheRest, "a line is bounded");
    fuzz::Require(IsPrintable(line), "a line does nothing to a terminal");
    fuzz::Require(mpm::Compact(json).find('\n') == std::string::npos, "JSON stands on one line");
    if (!isCommand) fuzz::Require(mpm::JsonOf(request) == json, "a kept request reads as it was seen");
}
