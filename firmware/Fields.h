// How a record is read: one entry for each field, from which both the JSON record and the readable lines are
// made.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace mpm {

inline constexpr size_t kRest = 0;  // the size of a field that takes all that is left

struct Field {
    enum class Kind {
        Number,    // little-endian, unsigned
        Signed,    // little-endian
        Text,      // C string in a fixed area
        WideText,  // the same in UTF-16
        Address,   // IPv4 in network byte order, shown with dots
        NetPort,   // a port in network byte order, possibly widened
        Data,      // shown as its length and first bytes
        Secret,    // shown as its length alone, up to the last byte that is not 0
        Slots,     // MultiNwInfo's entries, as many as its Count says and it holds
    };
    const char* name;
    size_t offset, size;
    Kind kind = Kind::Number;
};

#define MPM_FIELD_AS(Record, member, as) \
    { #member, offsetof(Record, member), sizeof(Record::member), mpm::Field::Kind::as }
#define MPM_FIELD(Record, member) MPM_FIELD_AS(Record, member, Number)

// The bytes as an object of the fields that they reach; what lies behind the last field is "data". Of bytes
// shorter than the record the numbers that they do not reach are left out.
Json::Value Decode(std::span<const Field> fields, std::span<const uint8_t> bytes);

// "132 bytes: 16 03 01 ..."
std::string Preview(std::span<const uint8_t> bytes);

}  // namespace mpm
