#include "winhost/winhostctl/Print.h"

#include <json/writer.h>

#include <string>

namespace winhostctl {
namespace {

std::string Compact(const Json::Value& json) {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return Json::writeString(compact, json);
}

// "state 4, waitHint 0"
std::string OneLine(const Json::Value& json) {
    if (json.isString()) return json.asString();
    if (!json.isObject()) return Compact(json);
    std::string line;
    for (const std::string& name : json.getMemberNames())
        line += (line.empty() ? "" : ", ") + name + " " + OneLine(json[name]);
    return line;
}

}  // namespace

void Print(std::ostream& out, const Json::Value& result, bool asJson) {
    if (asJson) {
        out << Compact(result) << "\n";
    } else if (result.isArray()) {
        for (const Json::Value& entry : result)
            out << OneLine(entry) << "\n";
    } else if (result.isObject()) {
        for (const std::string& name : result.getMemberNames())
            out << name << ": " << OneLine(result[name]) << "\n";
    } else {
        out << OneLine(result) << "\n";
    }
}

}  // namespace winhostctl
