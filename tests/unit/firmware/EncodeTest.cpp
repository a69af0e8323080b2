// Records from the values of their fields, and back.
#include "firmware/Encode.h"

#include <gtest/gtest.h>

#include "firmware/Fields.h"
#include "mailbox/MailboxTables.h"

namespace mpm::test {
namespace {

std::vector<RecordLayout> AllLayouts() {
    std::vector<RecordLayout> layouts;
    for (const FirmwareCommand& command : kFirmwareCommands)
        layouts.push_back(command.payload);
    for (const MailboxRequest& request : kMailboxRequests)
        for (const RecordLayout& layout : {request.input, request.output})
            layouts.push_back(layout);
    return layouts;
}

Json::Value Sample(const RecordField& field, unsigned seed);

Json::Value SampleRecord(const RecordLayout& layout, unsigned seed) {
    Json::Value values(Json::objectValue);
    for (const RecordField& field : layout.fields)
        values[field.name] = Sample(field, ++seed);
    // The count of slots belongs to them.
    for (const RecordField& field : layout.fields)
        if (field.kind == RecordField::Kind::Slots)
            values[layout.fields.front().name] = Json::Int64(values[field.name].size());
    return values;
}

// What Decode would show of a field with some value; each seed has another one.
Json::Value Sample(const RecordField& field, unsigned seed) {
    const bool isLarge = field.size == kRest || field.size > 16;
    switch (field.kind) {
        case RecordField::Kind::Number:
            return Json::Int64(seed % 200);
        case RecordField::Kind::Signed:
            return Json::Int64(-int(seed % 100));
        case RecordField::Kind::Text:
        case RecordField::Kind::WideText:
        case RecordField::Kind::Secret:
            return std::string(isLarge ? 5 : 1, char('a' + seed % 26));
        case RecordField::Kind::Address:
            return "10.0.0." + std::to_string(seed % 256);
        case RecordField::Kind::NetPort:
            return Json::Int64(60000 + seed);
        case RecordField::Kind::Data:
        case RecordField::Kind::Reserved: {
            const std::vector<uint8_t> bytes(isLarge ? 16 : field.size, uint8_t(seed | 1));
            return Preview(bytes);
        }
        case RecordField::Kind::Slots:
            break;
    }
    Json::Value slots(Json::arrayValue);
    for (unsigned i = 0; i < 2; ++i)
        slots.append(SampleRecord(*field.element, seed + i));
    return slots;
}

// Areas of more than 16 bytes are shown by their size and first bytes.
void ShortenPreviews(std::span<const RecordField> fields, Json::Value& values) {
    for (const RecordField& field : fields) {
        const bool binary =
            field.kind == RecordField::Kind::Data || field.kind == RecordField::Kind::Reserved;
        if (binary && field.size > 16) values.removeMember(field.name);
        if (field.kind == RecordField::Kind::Slots)
            for (Json::Value& slot : values[field.name])
                ShortenPreviews(field.element->fields, slot);
    }
}

std::string RefusalOf(const RecordLayout& layout, const char* field, const Json::Value& value) {
    Json::Value values;
    values[field] = value;
    try {
        Encode(layout, values);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return {};
}

const RecordLayout& PeerLayout() {
    return RecordRows<KvmPeer>::kLayout;
}

}  // namespace

TEST(EncodeTest, EachFieldOfEachRecordComesBackFromItsBytes) {
    for (const RecordLayout& layout : AllLayouts()) {
        Json::Value values = SampleRecord(layout, 7);
        Json::Value decoded = Decode(layout.fields, Encode(layout, values), Secrets::Shown);
        ShortenPreviews(layout.fields, values);
        ShortenPreviews(layout.fields, decoded);
        // A record that is longer than its fields is filled with zeros.
        if (!values.isMember("data")) decoded.removeMember("data");
        EXPECT_EQ(decoded, values) << layout.name;
    }
}

TEST(EncodeTest, ARecordWithoutValuesIsEmpty) {
    for (const RecordLayout& layout : AllLayouts())
        EXPECT_EQ(Encode(layout, Json::objectValue), std::vector<uint8_t>(layout.minSize)) << layout.name;
}

TEST(EncodeTest, BytesBehindTheFieldsAreTheirData) {
    Json::Value values;
    values["data"] = "01 02 ff";
    EXPECT_EQ(Encode(RecordRows<StreamBytes>::kLayout, values), (std::vector<uint8_t>{1, 2, 255}));
}

TEST(EncodeTest, NumbersMayBeTextsOfDigits) {
    Json::Value values;
    values["port"] = "0x1F90";
    EXPECT_EQ(Encode(PeerLayout(), values), (std::vector<uint8_t>{0, 0, 0, 0, 0x90, 0x1F, 0, 0}));
}

TEST(EncodeTest, ARefusalNamesTheFieldAndTheReason) {
    EXPECT_EQ(RefusalOf(PeerLayout(), "colour", 1), "\"colour\" is no field of KvmPeer");
    EXPECT_EQ(RefusalOf(PeerLayout(), "port", -1), "\"port\" has to be a whole number from 0 to 4294967295");
    EXPECT_EQ(RefusalOf(PeerLayout(), "port", Json::UInt64(1) << 32),
              "\"port\" has to be a whole number from 0 to 4294967295");
    EXPECT_EQ(RefusalOf(PeerLayout(), "port", "12x"),
              "\"port\" has to be a whole number from 0 to 4294967295");
    EXPECT_EQ(RefusalOf(PeerLayout(), "address", "1.2.3"), "\"address\" has to be an IPv4 address");
    EXPECT_EQ(RefusalOf(PeerLayout(), "address", Json::arrayValue), "\"address\" has to be a text");
    EXPECT_EQ(RefusalOf(PeerLayout(), "data", "01"), "\"data\" has room for only 0 bytes");
    const RecordLayout& passwords = RecordRows<ADPasswordUpdate>::kLayout;
    const size_t room = passwords.fields[0].size;
    EXPECT_EQ(RefusalOf(passwords, "OldPassword", std::string(room + 1, 'x')),
              "\"OldPassword\" has room for only " + std::to_string(room) + " bytes");
    EXPECT_EQ(RefusalOf(passwords, "OldPassword", std::string("a\0b", 3)),
              "\"OldPassword\" must not contain the character 0");
    const RecordLayout& stream = RecordRows<StreamBytes>::kLayout;
    EXPECT_EQ(RefusalOf(stream, "data", "0"), "\"data\" has to be bytes in hexadecimal");
    EXPECT_EQ(RefusalOf(stream, "data", Preview(std::vector<uint8_t>(17))),
              "\"data\" has to be bytes in hexadecimal");
    EXPECT_EQ(RefusalOf(stream, "data", "3 bytes: 01 02"), "\"data\" does not have all of its bytes");
}

TEST(EncodeTest, OnlyAnObjectHasFields) {
    EXPECT_THROW(Encode(PeerLayout(), Json::arrayValue), std::invalid_argument);
}

}  // namespace mpm::test
