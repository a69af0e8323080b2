// The tables of the mailbox: their rows agree with each other and with the records.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "mailbox/FirmwareLevels.h"
#include "mailbox/MailboxTables.h"

namespace {

std::vector<RecordLayout> AllRecords() {
    std::vector<RecordLayout> records;
    for (const FirmwareCommand& command : kFirmwareCommands)
        records.push_back(command.payload);
    for (const MailboxRequest& request : kMailboxRequests) {
        records.push_back(request.input);
        records.push_back(request.output);
    }
    for (size_t i = 0; i < records.size(); ++i)
        for (const RecordField& field : records[i].fields)
            if (field.element) records.push_back(*field.element);
    return records;
}

std::string Range(size_t begin, size_t end) {
    return "bytes " + std::to_string(begin) + " to " + std::to_string(end - 1);
}

bool TakesTheRest(const RecordLayout& record) {
    return !record.fields.empty() && record.fields.back().size == kRest;
}

// The first byte of the record without a row, or with two; empty when there is none.
std::string FlawIn(const RecordLayout& record) {
    if (record.fields.empty() || TakesTheRest(record)) return {};
    size_t end = 0;
    for (const RecordField& field : record.fields) {
        if (field.offset > end)
            return Range(end, field.offset) + ", ahead of " + field.name + ", have no row";
        if (field.offset < end) return std::string(field.name) + " begins within the field ahead of it";
        end += field.size;
    }
    // Of an encoded frame the fields are the head.
    const size_t size = record.minSize == record.maxSize ? record.maxSize : end;
    if (end < size) return Range(end, size) + " have no row";
    return end > size ? "the rows are longer than the record" : "";
}

}  // namespace

TEST(Tables, TheRowsOfARecordCoverItWhole) {
    for (const RecordLayout& record : AllRecords())
        EXPECT_EQ(FlawIn(record), "") << "in RECORD_FIELDS(" << record.name << ", ...)";
}

TEST(Tables, AFlawIsNamed) {
    const auto flaw = [](std::vector<RecordField> fields) { return FlawIn({"Record", 8, 8, fields}); };
    EXPECT_EQ(flaw({{"a", 0, 4}, {"b", 4, 4}}), "");
    EXPECT_EQ(flaw({{"a", 0, 4}}), "bytes 4 to 7 have no row");
    EXPECT_EQ(flaw({{"a", 0, 2}, {"b", 4, 4}}), "bytes 2 to 3, ahead of b, have no row");
    EXPECT_EQ(flaw({{"a", 0, 4}, {"b", 2, 6}}), "b begins within the field ahead of it");
}

TEST(Tables, EveryRecordOfFixedSizeHasFields) {
    for (const RecordLayout& record : AllRecords())
        EXPECT_TRUE(record.minSize == 0 || !record.fields.empty()) << record.name << " has no rows";
}

TEST(Tables, NoTwoCommandsShareANumberOrAName) {
    std::map<int, std::string> numbers;
    std::set<std::string> names;
    for (const FirmwareCommand& command : kFirmwareCommands) {
        EXPECT_TRUE(numbers.emplace(command.number, command.name).second)
            << command.name << " has the number of " << numbers[command.number];
        EXPECT_TRUE(names.insert(command.name).second) << command.name << " is there twice";
    }
}

TEST(Tables, RequestsThatShareACodeDifferBySize) {
    for (const MailboxRequest& one : kMailboxRequests)
        for (const MailboxRequest& other : kMailboxRequests) {
            if (&one == &other || one.code != other.code) continue;
            EXPECT_TRUE(one.input.maxSize < other.input.minSize || other.input.maxSize < one.input.minSize)
                << one.name << " and " << other.name;
        }
}

TEST(Tables, ACodeSaysWhetherItsRequestWritesOrAsks) {
    constexpr uint32_t kDeviceType = 0x9C41, kRead = 1, kWrite = 2;
    for (const MailboxRequest& request : kMailboxRequests) {
        EXPECT_EQ(request.code >> 16, kDeviceType) << request.name;
        const bool writes = request.input.maxSize > 0;
        EXPECT_EQ(request.code >> 14 & 3, writes ? kWrite : kRead) << request.name;
    }
}

TEST(Tables, LevelsAscend) {
    uint32_t last = 0;
    for (const FirmwareLevelRow& level : kFirmwareLevels) {
        EXPECT_GE(level.threshold, last) << level.name;
        last = level.threshold;
    }
}
