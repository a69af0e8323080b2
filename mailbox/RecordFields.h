// The description of a record: one row for each field. The simulated firmware, the tests and other programs
// that show or fill a record iterate these rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "mailbox/MailboxBuffer.h"

inline constexpr size_t kRest = 0;  // the size of a field that takes all that is left

struct RecordLayout;

struct RecordField {
    enum class Kind {
        Number,    // little-endian, unsigned
        Signed,    // little-endian
        Text,      // C string in a fixed area
        WideText,  // the same in UTF-16
        Address,   // IPv4 in network byte order
        NetPort,   // a port in network byte order, possibly widened
        Data,      // bytes without further meaning
        Secret,    // never shown
        Slots,     // an array of records; the record's first field, of two bytes, counts those in use
        Reserved,  // bytes without a meaning, 0 unless the record's owner says otherwise
    };
    const char* name;
    size_t offset, size;
    Kind kind = Kind::Number;
    const RecordLayout* element = nullptr;  // of Slots
};

struct RecordLayout {
    const char* name;
    size_t minSize, maxSize;  // of the whole, in bytes
    std::span<const RecordField> fields;
};

// The layout of a record, as kLayout. A record without rows has none, and a table that names it does not
// compile.
template <class Record>
struct RecordRows;

constexpr RecordField MakeField(const char* name, size_t offset, size_t size, RecordField::Kind kind,
                                const RecordLayout* element = nullptr) {
    return {name, offset, size, kind, element};
}

// RECORD_FIELDS(Record, FIELD(member), FIELD_AS(member, Kind), ...) describes a packed struct, in order.
#define FIELD(member) FIELD_AS(member, Number)
#define FIELD_AS(member, as) MakeField(#member, offsetof(R, member), sizeof(R::member), RecordField::Kind::as)
#define FIELD_SLOTS(member, Element)                                                     \
    MakeField(#member, offsetof(R, member), sizeof(R::member), RecordField::Kind::Slots, \
              &RecordRows<Element>::kLayout)
#define RECORD_FIELDS(Record, ...)                                                               \
    template <>                                                                                  \
    struct RecordRows<Record> {                                                                  \
        using R = Record;                                                                        \
        static constexpr RecordField kFields[] = {__VA_ARGS__};                                  \
        static constexpr RecordLayout kLayout{#Record, sizeof(Record), sizeof(Record), kFields}; \
    }

// --- what is no struct ---

struct NoRecord {};
template <>
struct RecordRows<NoRecord> {
    static constexpr RecordLayout kLayout{"NoRecord", 0, 0, {}};
};

// Any bytes, up to a whole buffer.
struct StreamBytes {};
template <>
struct RecordRows<StreamBytes> {
    static constexpr RecordLayout kLayout{"StreamBytes", 0, kMailboxBufferSize, {}};
};

// One text without an end mark.
struct TextBytes {};
template <>
struct RecordRows<TextBytes> {
    static constexpr RecordField kFields[] = {{"text", 0, kRest, RecordField::Kind::Text}};
    static constexpr RecordLayout kLayout{"TextBytes", 0, kMailboxBufferSize, kFields};
};
