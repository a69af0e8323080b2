// Whether the PC is in the company's network: by the DNS suffixes of its active adapters.
#include <gtest/gtest.h>

#include "tests/unit/cloud/CloudFixture.h"

namespace {

using Suffixes = std::vector<std::string>;

class NetworkDomains : public CloudFixture {
  protected:
    struct Card {
        std::string suffix;
        uint32_t operStatus = 5;
        bool hasAddress = true;
    };
    static void SetAdapters(const std::vector<Card>& cards) {
        Pc().Change([&](winhost::PcDescription& pc) {
            pc.adapters->clear();
            for (const Card& card : cards) {
                winhost::Adapter adapter;
                adapter.index = static_cast<uint32_t>(pc.adapters->size() + 2);
                adapter.name = "{card-" + std::to_string(adapter.index) + "}";
                adapter.operStatus = card.operStatus;
                if (card.hasAddress) adapter.address = "10.0.0." + std::to_string(adapter.index);
                adapter.mask = "255.255.255.0";
                SetSuffix(pc, adapter.name, card.suffix);
                pc.adapters->push_back(adapter);
            }
        });
    }
    void SetCorporate(const std::string& domains) {
        SetDomains(domains);
        Client().SetupCloudServer();
    }
};

TEST_F(NetworkDomains, EachSuffixIsListedOnce) {
    SetAdapters({{"b.example.com"}, {"a.example.com"}, {"b.example.com"}});
    EXPECT_EQ(GetNetworkDomains(), (Suffixes{"b.example.com", "a.example.com"}));
}

TEST_F(NetworkDomains, ADisconnectedAdapterDoesNotCount) {
    SetAdapters({{.suffix = "corp.example.com", .operStatus = 2}, {"home.example.com"}});
    EXPECT_EQ(GetNetworkDomains(), Suffixes{"home.example.com"});
}

TEST_F(NetworkDomains, AnAdapterWithoutAnAddressOrASuffixDoesNotCount) {
    SetAdapters({{.suffix = "corp.example.com", .hasAddress = false}, {""}});
    EXPECT_TRUE(GetNetworkDomains().empty());
}

TEST_F(NetworkDomains, ASuffixKeepsItsLetters) {
    SetAdapters({{"büro.example.com"}});
    EXPECT_EQ(GetNetworkDomains(), Suffixes{"büro.example.com"});
}

TEST_F(NetworkDomains, AListThatIsTooLongForTheFirstBufferIsReadToo) {
    std::vector<Card> cards;
    Suffixes suffixes;
    for (int i = 0; i < 60; ++i) {
        suffixes.push_back("domain-" + std::to_string(i) + ".example.com");
        cards.push_back({suffixes.back()});
    }
    SetAdapters(cards);
    Gate().Reset();
    EXPECT_EQ(GetNetworkDomains(), suffixes);
    EXPECT_EQ(Gate().Count("GetAdaptersAddresses"), 2u);
}

TEST_F(NetworkDomains, AListThatKeepsGrowingIsGivenUpAfterThreeCalls) {
    ExpectError("Call to GetAdaptersAddresses failed with error: 111");
    SetAdapters({{"corp.example.com"}});
    Gate().FailNth("GetAdaptersAddresses", 1, ERROR_BUFFER_OVERFLOW, true);
    EXPECT_TRUE(GetNetworkDomains().empty());
    EXPECT_EQ(Gate().Count("GetAdaptersAddresses"), 3u);
}

TEST_F(NetworkDomains, AnotherErrorIsNotTriedAgain) {
    ExpectError("Call to GetAdaptersAddresses failed with error: 8");
    Gate().FailNth("GetAdaptersAddresses", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(GetNetworkDomains().empty());
    EXPECT_EQ(Gate().Count("GetAdaptersAddresses"), 1u);
}

TEST_F(NetworkDomains, ASuffixThatCannotBeConvertedIsPassedOver) {
    SetAdapters({{"a.example.com"}, {"b.example.com"}});
    Gate().FailNth("WideCharToMultiByte", 1, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetNetworkDomains(), Suffixes{"b.example.com"});
}

TEST_F(NetworkDomains, WithoutACorporateListTheHostIsOutside) {
    SetAdapters({{"corp.example.com"}});
    EXPECT_TRUE(Client().IsOutsideCorporateNetwork());
    EXPECT_TRUE(HasLine("INFO", "NUBA: MPM Domain list is empty"));
}

TEST_F(NetworkDomains, WithoutASuffixTheHostIsOutside) {
    SetCorporate("corp.example.com");
    SetAdapters({{""}});
    EXPECT_TRUE(Client().IsOutsideCorporateNetwork());
    EXPECT_TRUE(HasLine("INFO", "NUBA: Network Domain list is empty"));
}

TEST_F(NetworkDomains, OneEqualDomainIsEnough) {
    SetCorporate(R"(lab.example.com\corp.example.com)");
    SetAdapters({{"vpn.example.org"}, {"corp.example.com"}, {"lab.example.com"}});
    EXPECT_FALSE(Client().IsOutsideCorporateNetwork());
    ExpectLogInOrder({"NUBA: Network Domain[0] is vpn.example.org",
                      "NUBA: Network Domain[1] is corp.example.com",
                      "NUBA: Domain corp.example.com matches with MPM Domain corp.example.com"});
    EXPECT_EQ(LogCount("NUBA: Network Domain[2]"), 0u);
}

TEST_F(NetworkDomains, OnlyTheWholeSuffixInTheSameLettersMatches) {
    SetCorporate("example.com");
    SetAdapters({{"corp.example.com"}, {"Example.com"}, {"example.co"}});
    EXPECT_TRUE(Client().IsOutsideCorporateNetwork());
    EXPECT_TRUE(HasLine("INFO", "NUBA: No matching domain found. System is outside corporate network."));
}

}  // namespace
