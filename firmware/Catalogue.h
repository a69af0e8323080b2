// Every request that a host may make of the firmware: name, control code and sizes; and the names of the
// commands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "firmware/Fields.h"

namespace mpm {

struct Operation {
    const char* name;
    uint32_t code;
    size_t minInput, maxInput;
    size_t output;
    std::span<const Field> fields;  // of the input; bytes behind them are data
};

std::span<const Operation> Operations();
// The operation whose code and input size these are; null when there is none.
const Operation* FindOperation(uint32_t code, size_t inputSize);
const Operation* FindOperation(const std::string& name);  // in any case
// Whether the code is in the catalogue at all, whatever the size.
const Operation* FirstOperation(uint32_t code);

struct Command {
    const char* name;
    uint8_t number;
    std::span<const Field> fields;  // of the payload
};

std::span<const Command> Commands();
// The command's name, or its number in decimal when it has none.
std::string CommandName(uint8_t number);
// By name, with or without "MPM_ZEL_CMD_" or "MPM_ZEL_", in any case, or by number (decimal or 0x...).
std::optional<uint8_t> ParseCommand(const std::string& text);

// "0x9C41A400"
std::string CodeText(uint32_t code);

}  // namespace mpm
