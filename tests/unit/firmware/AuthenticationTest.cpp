// Which requests of a console the firmware takes for those of a user.
#include "firmware/dash/Authentication.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "firmware/dash/Credentials.h"

namespace mpm::test {
namespace {

using namespace std::chrono_literals;

std::string Hash(const std::string& algorithm, const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, algorithm == "MD5" ? EVP_md5() : EVP_sha256(),
               nullptr);
    std::string hex;
    for (unsigned i = 0; i < size; ++i) {
        char byte[3];
        std::snprintf(byte, sizeof byte, "%02x", digest[i]);
        hex += byte;
    }
    return hex;
}

std::string ToBase64(const std::string& text) {
    std::string encoded(text.size() * 2 + 4, '\0');
    encoded.resize(
        size_t(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                               reinterpret_cast<const unsigned char*>(text.data()), int(text.size()))));
    return encoded;
}

// What a client puts into its Authorization header.
struct DigestAnswer {
    std::string nonce, algorithm = "MD5", user = "admin", password = "s3cret:\"x", uri = "/wsman",
                       count = "00000001", realm = "mpmsim", qop = "auth", more = "";

    std::string Header() const {
        const std::string first = Hash(algorithm, user + ":" + realm + ":" + password);
        const std::string second = Hash(algorithm, "POST:" + uri);
        const std::string response =
            Hash(algorithm, first + ":" + nonce + ":" + count + ":c1:" + qop + ":" + second);
        return "Digest username=\"" + user + "\", realm=\"" + realm + "\", nonce=\"" + nonce + "\", uri=\"" +
               uri + "\", algorithm=" + algorithm + ", qop=" + qop + ", nc=" + count +
               ", cnonce=\"c1\", response=\"" + response + "\"" + more;
    }
};

class AuthenticationTest : public testing::Test {
  protected:
    AuthenticationTest() { m_settings.Users["admin"] = "s3cret:\"x"; }

    std::optional<HttpResponse> Refuse(const std::string& header) {
        return m_authentication.Refuse({"POST", "/wsman", "", "", header}, m_settings, m_now);
    }
    int Status(const std::string& header) {
        const auto refusal = Refuse(header);
        return refusal ? refusal->status : 200;
    }
    int Status(const DigestAnswer& answer) { return Status(answer.Header()); }
    bool IsStale(const DigestAnswer& answer) {
        const auto refusal = Refuse(answer.Header());
        return refusal && refusal->extraHeaders.find(", stale=true\r\n") != std::string::npos;
    }
    std::string NewNonce() {
        const std::string headers = Refuse("")->extraHeaders;
        const size_t begin = headers.find("nonce=\"") + 7;
        return headers.substr(begin, headers.find('"', begin) - begin);
    }
    int Basic(const std::string& user, const std::string& password) {
        return Status("Basic " + ToBase64(user + ":" + password));
    }

    Settings m_settings;
    Authentication m_authentication;
    Authentication::Clock::time_point m_now = Authentication::Clock::now();
};

TEST_F(AuthenticationTest, AsksNothingWhileThereAreNoUsers) {
    m_settings.Users.clear();
    EXPECT_EQ(Status(""), 200);
    EXPECT_EQ(Basic("x", "y"), 200);
}

TEST_F(AuthenticationTest, OffersItsChallengesInTheirOrder) {
    const auto offered = [this] {
        std::string headers = Refuse("")->extraHeaders;
        for (size_t at = 0; (at = headers.find("nonce=\"", at)) != std::string::npos; at += 7)
            headers.erase(at + 7, headers.find('"', at + 7) - at - 7);
        return headers;
    };
    const std::string basic = "WWW-Authenticate: Basic realm=\"mpmsim\", charset=\"UTF-8\"\r\n";
    const auto digest = [](const std::string& algorithm) {
        return "WWW-Authenticate: Digest realm=\"mpmsim\", qop=\"auth\", algorithm=" + algorithm +
               ", nonce=\"\", charset=UTF-8\r\n";
    };
    EXPECT_EQ(Refuse("")->status, 401);
    EXPECT_EQ(offered(), digest("MD5") + digest("SHA-256") + basic);
    m_settings.Challenges = {Challenge::Basic, Challenge::Sha256};
    EXPECT_EQ(offered(), basic + digest("SHA-256"));
}

TEST_F(AuthenticationTest, TakesBasicWithTheRightPassword) {
    EXPECT_EQ(Basic("admin", "s3cret:\"x"), 200);
    EXPECT_EQ(Status("bAsIc   " + ToBase64("admin:s3cret:\"x") + " "), 200);
    EXPECT_EQ(Basic("admin", "s3cret:\"y"), 401);
    EXPECT_EQ(Basic("admin", ""), 401);
    EXPECT_EQ(Basic("Admin", "s3cret:\"x"), 401);
    EXPECT_EQ(Basic("other", ""), 401);
    for (const char* header :
         {"Basic", "Basic ", "Basic YQ", "Basic =YQ=", "Basic YWRtaW4=", "Basic ====", "Bearer YQ=="})
        EXPECT_EQ(Status(header), 401) << header;
    m_settings.Challenges = {Challenge::Md5};
    EXPECT_EQ(Basic("admin", "s3cret:\"x"), 401);
}

TEST_F(AuthenticationTest, TakesDigestWithBothAlgorithmsUnderOneNonce) {
    m_settings.Users["admin"] = "simple";
    const std::string nonce = NewNonce();
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce, .password = "simple"}), 200);
    EXPECT_EQ(Status(DigestAnswer{
                  .nonce = nonce, .algorithm = "SHA-256", .password = "simple", .count = "0000000a"}),
              200);
    m_settings.Challenges = {Challenge::Md5};
    EXPECT_EQ(Status(DigestAnswer{.nonce = NewNonce(), .algorithm = "SHA-256", .password = "simple"}), 401);
}

TEST_F(AuthenticationTest, RefusesDigestThatDoesNotFit) {
    const std::string nonce = NewNonce();
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce}), 200);
    const DigestAnswer wrong[] = {{.nonce = nonce, .password = "x", .count = "00000002"},
                                  {.nonce = nonce, .user = "other", .password = "", .count = "00000002"},
                                  {.nonce = nonce, .count = "00000002", .realm = "elsewhere"},
                                  {.nonce = nonce, .count = "00000002", .qop = "auth-int"},
                                  {.nonce = nonce, .count = "00000002", .more = ", nc=00000002"},
                                  {.nonce = nonce, .count = "00000002", .more = ", x"}};
    for (const DigestAnswer& answer : wrong) {
        EXPECT_EQ(Status(answer), 401) << answer.Header();
        EXPECT_FALSE(IsStale(answer)) << answer.Header();
    }
    EXPECT_EQ(Status("Digest"), 401);
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce, .uri = "/other", .count = "00000002"}), 400);
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce, .count = "00000002"}), 200);
}

TEST_F(AuthenticationTest, AsksForANewNonceWithoutAskingForThePassword) {
    const std::string nonce = NewNonce();
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce, .count = "00000005"}), 200);
    EXPECT_TRUE(IsStale({.nonce = nonce, .count = "00000005"})) << "used twice";
    EXPECT_TRUE(IsStale({.nonce = nonce, .count = "00000004"})) << "out of order";
    EXPECT_TRUE(IsStale({.nonce = nonce, .count = "6"})) << "not eight digits";
    EXPECT_TRUE(IsStale({.nonce = "0123456789abcdef"})) << "not made here";
    m_now += Authentication::kNonceLife;
    EXPECT_EQ(Status(DigestAnswer{.nonce = nonce, .count = "00000006"}), 200);
    m_now += 1s;
    EXPECT_TRUE(IsStale({.nonce = nonce, .count = "00000007"})) << "too old";
}

TEST_F(AuthenticationTest, KeepsABoundedNumberOfNonces) {
    const std::string first = NewNonce();
    for (size_t i = 1; i < Authentication::kMaxNonces; ++i)
        NewNonce();
    EXPECT_EQ(Status(DigestAnswer{.nonce = first}), 200);
    NewNonce();
    EXPECT_TRUE(IsStale({.nonce = first, .count = "00000002"}));
}

TEST(CredentialsTest, AreReadAsTheStandardWritesThem) {
    const auto read = ParametersOf(R"( a=1 , B = "x, \"y\\" ,c="" )");
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, (std::map<std::string, std::string>{{"a", "1"}, {"b", "x, \"y\\"}, {"c", ""}}));
    for (const char* malformed : {"", "a", "a=1,", "a=1 b=2", "a=\"1", "a=\"1\\", "=1", "a=1,A=2"})
        EXPECT_FALSE(ParametersOf(malformed)) << malformed;
}

}  // namespace
}  // namespace mpm::test
