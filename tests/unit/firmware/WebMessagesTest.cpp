// What pages send, and the requests that it stands for.
#include <gtest/gtest.h>

#include "firmware/web/Messages.h"
#include "testbed/Json.h"

namespace mpm::web::test {
namespace {

Json::Value RequestOf(const std::string& members) {
    return ControlRequestOf(PageMessage::Parse("{\"id\": 1, " + members + "}"));
}

std::string WhyNot(const std::string& members) {
    try {
        RequestOf(members);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "it is taken";
}

}  // namespace

TEST(WebMessagesTest, AMessageHasANumberAndAVerb) {
    const PageMessage message = PageMessage::Parse(R"({"id": 18446744073709551615, "do": "show"})");
    EXPECT_EQ(message.id, UINT64_MAX);
    EXPECT_EQ(message.verb, "show");
    for (const char* text :
         {"", "{", "[]", "7", "null", "{}", R"({"id": 1})", R"({"do": "show"})",
          R"({"id": -1, "do": "show"})", R"({"id": "1", "do": "show"})", R"({"id": 1.5, "do": "show"})",
          R"({"id": 1, "do": 2})", R"({"id": 1, "do": "show"} {})", R"({"id": 1, "id": 2, "do": "show"})",
          "{\"id\": 1, \"do\": \"\xff\0"})
        EXPECT_THROW(PageMessage::Parse(text), std::exception) << text;
    EXPECT_THROW(PageMessage::Parse(std::string(100'000, '[')), std::exception);
}

TEST(WebMessagesTest, AnAnswerHasTheNumberOfItsQuestion) {
    EXPECT_EQ(AnswerText(7, "x"), R"({"id":7,"ok":true,"result":"x"})");
    EXPECT_EQ(RefusalText(Json::Value(), "no"), R"({"error":"no","id":null,"ok":false})");
}

TEST(WebMessagesTest, TheFieldsOfAPayloadBecomeItsBytes) {
    const Json::Value request = RequestOf(
        R"("do": "send", "command": "kvm_ip_port_info", "fields": {"address": "127.0.0.1", "port": 5})");
    EXPECT_EQ(request["verb"], "send");
    EXPECT_EQ(request["command"], 39);
    EXPECT_EQ(request["payload"], "7f00000105000000");
}

TEST(WebMessagesTest, APayloadMayBeBytes) {
    const Json::Value request = RequestOf(R"("do": "send", "command": 200, "payload": "00ff", "trailer": 3)");
    EXPECT_EQ(request["command"], 200);
    EXPECT_EQ(request["payload"], "00ff");
    EXPECT_EQ(request["trailer"].asInt(), 3);
    EXPECT_TRUE(RequestOf(R"("do": "send", "raw": true, "payload": "00")")["raw"].asBool());
}

TEST(WebMessagesTest, WhatIsWrongIsSaid) {
    EXPECT_EQ(WhyNot(R"("do": "send")"), "\"command\" has to be a command's name or its number");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 256)"),
              "\"command\" has to be a command's name or its number");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": "no such")"),
              "\"command\" has to be a command's name or its number");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 38, "trailer": 256)"),
              "\"trailer\" has to be a whole number from 0 to 255");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 38, "payload": 5)"), "\"payload\" has to be a text");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 200, "fields": {})"),
              "a command that is not known has no fields");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 38, "payload": "", "fields": {})"),
              "\"fields\" are there instead of \"payload\", and not in a raw message");
    EXPECT_EQ(WhyNot(R"("do": "send", "command": 39, "fields": {"port": "x"})"),
              "\"port\" has to be a whole number from 0 to 4294967295");
    EXPECT_EQ(WhyNot(R"("do": "set")"), "\"values\" has to be an object");
    EXPECT_EQ(WhyNot(R"("do": "fault", "words": "vanish")"), "\"words\" has to be an array of texts");
    EXPECT_EQ(WhyNot(R"("do": "enrol", "host": "h")"), "\"authority\" has to be a text");
    EXPECT_EQ(WhyNot(R"("do": "stop")"), "the verb is not known");
}

TEST(WebMessagesTest, APageWritesNoFiles) {
    EXPECT_EQ(WhyNot(R"("do": "screen", "picture": "/tmp/x")"),
              "a page cannot have a picture saved as a file");
    EXPECT_EQ(WhyNot(R"("do": "set", "values": {"sCREEN.ivf": "/tmp/x"})"),
              "Screen.Ivf names a file, which a page cannot choose");
}

}  // namespace mpm::web::test
