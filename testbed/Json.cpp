#include "testbed/Json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <stdexcept>

namespace testbed {

std::string Compact(const Json::Value& json) {
    static const Json::StreamWriterBuilder& builder = *[] {
        auto* made = new Json::StreamWriterBuilder;
        (*made)["indentation"] = "";
        (*made)["precision"] = 15;  // all digits that a double has in common with its decimal notation
        return made;
    }();
    return Json::writeString(builder, json);
}

Json::Value ParseObject(std::string_view text) {
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    const std::unique_ptr<Json::CharReader> reader(strict.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors))
        throw std::runtime_error("not a line of JSON: " + errors);
    if (!value.isObject()) throw std::runtime_error("not an object");
    return value;
}

}  // namespace testbed
