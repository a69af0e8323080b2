// The PC's description, from any text.
#include <json/reader.h>

#include <memory>
#include <string>

#include "fuzz/Input.h"
#include "winhost/pc/DescriptionJson.h"

namespace {

bool Parse(const std::string& text, Json::Value& json) {
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    const std::unique_ptr<Json::CharReader> reader(strict.newCharReader());
    std::string errors;
    try {
        return reader->parse(text.data(), text.data() + text.size(), &json, &errors);
    } catch (const Json::Exception&) {
        return false;  // nested too deeply
    }
}

}  // namespace

FUZZ_TARGET(pcdescription) {
    Json::Value json;
    if (!Parse(fuzz::TextOf(input), json)) return;
    try {
        const Json::Value written = winhost::DescriptionToJson(winhost::DescriptionFromJson(json));
        fuzz::Require(winhost::DescriptionToJson(winhost::DescriptionFromJson(written)) == written,
                      "what is written reads back the same");
    } catch (const winhost::DescriptionError& error) {
        const std::string line = error.what();
        fuzz::Require(line.find('\n') == std::string::npos, "a refusal is one line", line);
        fuzz::Require(line.find(": ") != std::string::npos, "a refusal names the place", line);
    }
}
