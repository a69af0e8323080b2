// Reads a record by the rows of its fields; both the JSON record and the readable lines are made from it.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <span>
#include <string>

#include "mailbox/RecordFields.h"

namespace mpm {

// Of a masked secret only the length is there; a shown one is a text.
enum class Secrets { Masked, Shown };

// The bytes as an object of the fields that they reach; what lies behind the last field is "data". Of bytes
// shorter than the record the numbers that they do not reach are left out. Reserved bytes are shown only when
// one of them is not 0.
Json::Value Decode(std::span<const RecordField> fields, std::span<const uint8_t> bytes,
                   Secrets secrets = Secrets::Masked);

// "132 bytes: 16 03 01 ..."
std::string Preview(std::span<const uint8_t> bytes);

}  // namespace mpm
