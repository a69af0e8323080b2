// Writes a record by the rows of its fields: the inverse of Decode (Fields.h).
#pragma once

#include <json/json.h>

#include <cstdint>
#include <vector>

#include "mailbox/RecordFields.h"

namespace mpm {

// The bytes of a record whose fields have these values; a field without a value is 0. Numbers are numbers, or
// texts of decimal or "0x" digits. Bytes are hexadecimal texts, or what Decode makes of at most 16 bytes.
// Slots are an array, whose length becomes the record's count unless that has a value itself. "data" is what
// follows behind the last field. Throws std::invalid_argument with a sentence that names the field: it is not
// known, its value is of another kind, out of range or too long.
std::vector<uint8_t> Encode(const RecordLayout& layout, const Json::Value& values);

}  // namespace mpm
