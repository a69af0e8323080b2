#include <winsock2.h>

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(Addresses, NetworkOrderHasTheHighByteFirst) {
    EXPECT_EQ(0x9802, htons(664));
    EXPECT_EQ(664, ntohs(0x9802));
    EXPECT_EQ(0x0100007Fu, htonl(0x7F000001));
    EXPECT_EQ(0x7F000001u, ntohl(0x0100007F));
}

TEST(Addresses, ADottedTextBecomesTheWordInNetworkOrder) {
    EXPECT_EQ(0x0100007Fu, inet_addr("127.0.0.1"));
    EXPECT_EQ(0x0A01A8C0u, inet_addr("192.168.1.10"));
    EXPECT_EQ(0u, inet_addr("0.0.0.0"));
}

TEST(Addresses, FewerPartsFillTheRestWithTheLast) {
    EXPECT_EQ(inet_addr("127.0.0.1"), inet_addr("127.1"));
    EXPECT_EQ(inet_addr("10.1.2.3"), inet_addr("10.1.515"));
    EXPECT_EQ(inet_addr("1.2.3.4"), inet_addr("0x01020304"));
    EXPECT_EQ(inet_addr("8.8.8.8"), inet_addr("010.8.0x8.8"));
}

TEST(Addresses, WhatIsNoAddressIsNone) {
    for (const char* text :
         {"", "x", "1.2.3.4.5", "256.1.1.1", "1.2.3.256", "1..2", "1.2.3.4x", "-1.2.3.4"}) {
        EXPECT_EQ(INADDR_NONE, inet_addr(text)) << text;
    }
    EXPECT_EQ(INADDR_NONE, inet_addr(nullptr));
}

TEST(Addresses, AWordIsPrintedDotted) {
    in_addr address{};
    address.s_addr = 0x0A01A8C0;
    EXPECT_STREQ("192.168.1.10", inet_ntoa(address));
    address.s_addr = 0xFFFFFFFF;
    EXPECT_STREQ("255.255.255.255", inet_ntoa(address));
}

TEST(Addresses, EachThreadHasItsOwnText) {
    in_addr address{};
    address.s_addr = inet_addr("10.0.0.1");
    const char* mine = inet_ntoa(address);
    std::thread([] {
        in_addr other{};
        other.s_addr = inet_addr("10.0.0.2");
        EXPECT_STREQ("10.0.0.2", inet_ntoa(other));
    }).join();
    EXPECT_STREQ("10.0.0.1", mine);
}

}  // namespace
