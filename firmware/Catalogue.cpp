#include "firmware/Catalogue.h"

#include <strings.h>

#include <charconv>
#include <cstdio>

#include "mailbox/FirmwareLevels.h"

namespace mpm {

namespace {

bool SameName(const char* a, const std::string& b) {
    return strcasecmp(a, b.c_str()) == 0;
}

constexpr const char* kKindNames[] = {"number", "signed", "text",   "wide text", "address",
                                      "port",   "data",   "secret", "records",   "reserved"};
static_assert(std::size(kKindNames) == size_t(RecordField::Kind::Reserved) + 1);

Json::Value AsJson(const RecordLayout& record) {
    Json::Value object;
    object["record"] = record.name;
    object["minSize"] = Json::UInt64(record.minSize);
    object["maxSize"] = Json::UInt64(record.maxSize);
    object["fields"] = Json::Value(Json::arrayValue);
    for (const RecordField& field : record.fields) {
        Json::Value row;
        row["name"] = field.name;
        row["offset"] = Json::UInt64(field.offset);
        row["size"] = Json::UInt64(field.size);
        row["kind"] = kKindNames[size_t(field.kind)];
        if (field.element) row["element"] = AsJson(*field.element);
        object["fields"].append(row);
    }
    return object;
}

Json::Value AsJson(const FirmwareLevelRow& level) {
    Json::Value object;
    object["name"] = level.name;
    object["from"] = level.threshold;
    object["effect"] = level.effect;
    return object;
}

}  // namespace

const MailboxRequest* FindRequest(uint32_t code, size_t inputSize) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (request.code == code && inputSize >= request.input.minSize && inputSize <= request.input.maxSize)
            return &request;
    return nullptr;
}

const MailboxRequest* FindRequest(const std::string& name) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (SameName(request.name, name)) return &request;
    return nullptr;
}

const MailboxRequest* FirstRequest(uint32_t code) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (request.code == code) return &request;
    return nullptr;
}

const FirmwareCommand* FindCommand(uint8_t number) {
    for (const FirmwareCommand& command : kFirmwareCommands)
        if (command.number == number) return &command;
    return nullptr;
}

std::string CommandName(uint8_t number) {
    const FirmwareCommand* command = FindCommand(number);
    return command ? command->name : std::to_string(number);
}

std::optional<uint8_t> ParseCommand(const std::string& text) {
    for (const FirmwareCommand& command : kFirmwareCommands)
        for (const char* prefix : {"", "MPM_ZEL_CMD_", "MPM_ZEL_"})
            if (SameName(command.name, prefix + text)) return command.number;
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const char* begin = text.data() + (hex ? 2 : 0);
    const char* end = text.data() + text.size();
    uint8_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (error != std::errc() || stop != end || begin == end) return std::nullopt;
    return number;
}

std::string CodeText(uint32_t code) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", code);
    return text;
}

Json::Value TablesAsJson() {
    Json::Value tables;
    for (const FirmwareCommand& command : kFirmwareCommands) {
        Json::Value object;
        object["name"] = command.name;
        object["number"] = command.number;
        object["payload"] = AsJson(command.payload);
        tables["commands"].append(object);
    }
    for (const MailboxRequest& request : kMailboxRequests) {
        Json::Value object;
        object["name"] = request.name;
        object["code"] = CodeText(request.code);
        object["input"] = AsJson(request.input);
        object["output"] = AsJson(request.output);
        tables["requests"].append(object);
    }
    for (const FirmwareLevelRow& level : kFirmwareLevels)
        tables["levels"].append(AsJson(level));
    return tables;
}

Json::Value LevelsAsJson(uint32_t level) {
    Json::Value levels(Json::arrayValue);
    for (const FirmwareLevelRow& row : kFirmwareLevels)
        levels.append(AsJson(row))["on"] = level >= row.threshold;
    return levels;
}

}  // namespace mpm
