// Look-ups in the tables of the mailbox: requests by code and size or by name, commands by number or by name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <json/json.h>

#include "mailbox/MailboxTables.h"

namespace mpm {

// The request whose code and input size these are; null when there is none.
const MailboxRequest* FindRequest(uint32_t code, size_t inputSize);
const MailboxRequest* FindRequest(const std::string& name);  // in any case
// Whether the code is in the catalogue at all, whatever the size.
const MailboxRequest* FirstRequest(uint32_t code);

// Null for an unknown command.
const FirmwareCommand* FindCommand(uint8_t number);
// The command's name, or its number in decimal when it has none.
std::string CommandName(uint8_t number);
// By name, with or without "MPM_ZEL_CMD_" or "MPM_ZEL_", in any case, or by number (decimal or 0x...).
std::optional<uint8_t> ParseCommand(const std::string& text);

// "0x9C41A400"
std::string CodeText(uint32_t code);

// All tables, for programs: {"commands": [...], "requests": [...], "levels": [...]}.
Json::Value TablesAsJson();
// The levels alone, each with whether firmware of this level has it.
Json::Value LevelsAsJson(uint32_t level);

}  // namespace mpm
