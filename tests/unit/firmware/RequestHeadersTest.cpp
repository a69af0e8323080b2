// The headers of WS-Management that a console sends along with a request.
#include "firmware/dash/RequestHeaders.h"

#include <gtest/gtest.h>

#include "firmware/dash/Wsman.h"

namespace mpm::test {
namespace {

const std::string kBasics = "<wsa:Action>urn:do</wsa:Action><wsa:MessageID>uuid:1</wsa:MessageID>";
const std::string kMust = R"( s:mustUnderstand="true")";

class RequestHeadersTest : public testing::Test {
  protected:
    RequestHeadersTest() {
        m_wsman.Offer("urn:do", [this](const SoapMessage&, SoapAnswer& answer) {
            ++m_done;
            AppendText(answer.Body(), "Done", std::string(m_answerSize, 'x'));
        });
    }
    HttpResponse Post(const std::string& headers) {
        return m_wsman.Handle(
            {"POST", "/wsman", "application/soap+xml",
             R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" )"
             R"(xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:f="urn:foreign" )"
             R"(xmlns:wsman="http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"><s:Header>)" +
                 headers + "</s:Header><s:Body><x/></s:Body></s:Envelope>"});
    }
    void ExpectDone(const std::string& more) {
        m_done = 0;
        const HttpResponse response = Post(kBasics + more);
        EXPECT_EQ(response.status, 200) << more << response.body;
        EXPECT_EQ(m_done, 1) << more;
    }
    // `detail`: the last part of the detail's URI; empty when there is no detail.
    void ExpectFault(const std::string& headers, const std::string& subcode, const std::string& detail = "") {
        m_done = 0;
        const HttpResponse response = Post(headers);
        EXPECT_EQ(response.status, 400) << headers;
        EXPECT_TRUE(Has(response, "<s:Value>s:Sender</s:Value><s:Subcode><s:Value>" + subcode + "</s:Value>"))
            << headers << response.body;
        const std::string uri = "http://schemas.dmtf.org/wbem/wsman/1/wsman/faultDetail/" + detail;
        EXPECT_EQ(Has(response, "<s:Detail>"), !detail.empty()) << headers;
        EXPECT_EQ(Has(response, "<s:Detail><wsman:FaultDetail>" + uri + "</wsman:FaultDetail></s:Detail>"),
                  !detail.empty())
            << headers << response.body;
        EXPECT_EQ(m_done, 0) << headers;
    }
    static bool Has(const HttpResponse& response, const std::string& text) {
        return response.body.find(text) != std::string::npos;
    }

    Wsman m_wsman;
    int m_done = 0;
    size_t m_answerSize = 1;
};

TEST_F(RequestHeadersTest, AreUnderstoodAsFarAsTheyAreKnown) {
    ExpectDone("<wsa:To" + kMust + ">urn:x</wsa:To><wsman:ResourceURI" + kMust +
               ">urn:r</wsman:ResourceURI>");
    ExpectDone("<f:Strange/><f:Strange f:mustUnderstand='true'/><f:Strange s:mustUnderstand=' 0 '/>");
    ExpectDone("<wsman:Unknown/><wsman:Unknown s:mustUnderstand='false'/>");
    for (const char* name : {"f:Strange", "wsman:Unknown", "wsa:Unknown", "Strange"})
        for (const char* value : {"true", "1", " true "}) {
            const HttpResponse response = Post(kBasics + "<" + name + " s:mustUnderstand='" + value + "'/>");
            EXPECT_EQ(response.status, 500) << name;
            EXPECT_TRUE(Has(response, "<s:Value>s:MustUnderstand</s:Value>")) << response.body;
        }
    EXPECT_TRUE(Has(Post(kBasics + "<f:Strange" + kMust + "/>"),
                    R"(<s:NotUnderstood xmlns:h="urn:foreign" qname="h:Strange")"));
    ExpectFault(kBasics + "<f:Strange s:mustUnderstand='perhaps'/>", "wsman:SchemaValidationError");
}

TEST_F(RequestHeadersTest, ForAnotherRoleArePassedOver) {
    const std::string roles = "http://www.w3.org/2003/05/soap-envelope/role/";
    for (const std::string& role : {roles + "none", std::string("urn:gateway")}) {
        ExpectDone("<f:Strange" + kMust + " s:role='" + role + "'/>");
        ExpectDone("<wsman:Locale xml:lang='de'" + kMust + " s:role='" + role + "'/>");
    }
    for (const std::string& role : {std::string(), roles + "next", roles + "ultimateReceiver"})
        EXPECT_EQ(Post(kBasics + "<f:Strange" + kMust + " s:role='" + role + "'/>").status, 500) << role;
    ExpectDone("<f:Strange f:role='urn:gateway'/>");
}

TEST_F(RequestHeadersTest, AreThereOnce) {
    ExpectFault(kBasics + "<wsa:Action>urn:do</wsa:Action>", "wsa:InvalidMessageInformationHeader");
    ExpectFault(kBasics + "<wsa:MessageID>uuid:2</wsa:MessageID>", "wsa:InvalidMessageInformationHeader");
    ExpectDone(
        "<f:Action>urn:other</f:Action><wsa:RelatesTo>a</wsa:RelatesTo><wsa:RelatesTo>b</wsa:RelatesTo>");
}

TEST_F(RequestHeadersTest, NeedAMessageId) {
    ExpectFault("<wsa:Action>urn:do</wsa:Action>", "wsa:MessageInformationHeaderRequired");
    ExpectFault("<wsa:Action>urn:do</wsa:Action><wsa:MessageID> </wsa:MessageID>",
                "wsa:MessageInformationHeaderRequired");
    ExpectFault("<wsa:MessageID>uuid:1</wsa:MessageID>", "wsa:MessageInformationHeaderRequired");
}

TEST_F(RequestHeadersTest, AskForAnswersOverTheSameConnection) {
    const auto to = [](const std::string& name, const std::string& address) {
        return "<wsa:" + name + "><wsa:Address>" + address + "</wsa:Address></wsa:" + name + ">";
    };
    ExpectDone(to("ReplyTo", std::string("\n") + kAnonymous + "\n") + to("FaultTo", kAnonymous));
    ExpectFault(kBasics + to("ReplyTo", "https://console/answers"), "wsman:UnsupportedFeature",
                "AddressingMode");
    ExpectFault(kBasics + to("FaultTo", "https://console/answers"), "wsman:UnsupportedFeature",
                "AddressingMode");
}

TEST_F(RequestHeadersTest, MayLimitTheTime) {
    const auto timeout = [](const std::string& text) {
        return "<wsman:OperationTimeout>" + text + "</wsman:OperationTimeout>";
    };
    for (const char* good : {"PT60S", "PT60.000S", "P1DT2H3M4.5S", " PT1M ", "P1Y", "PT0.5S"})
        ExpectDone(timeout(good));
    for (const char* bad : {"", "60", "P", "PT", "P1DT", "PT1", "P1S", "pt1s", "PT1S2M", "--PT1S", "PT.5S"})
        ExpectFault(kBasics + timeout(bad), "wsman:SchemaValidationError");
    ExpectFault(kBasics + timeout(std::string(100'000, '1')), "wsman:SchemaValidationError");
    for (const char* none : {"PT0S", "-PT1S", "PT0.000S"})
        ExpectFault(kBasics + timeout(none), "wsman:UnsupportedFeature", "OperationTimeout");
}

TEST_F(RequestHeadersTest, MayLimitTheAnswer) {
    const auto limit = [](const std::string& size, const std::string& must = kMust) {
        return "<wsman:MaxEnvelopeSize" + must + ">" + size + "</wsman:MaxEnvelopeSize>";
    };
    m_answerSize = 9000;
    ExpectDone(limit(" 51200 "));
    ExpectDone(limit("100", ""));
    const HttpResponse tooLong = Post(kBasics + limit("8192"));
    EXPECT_EQ(tooLong.status, 400);
    EXPECT_TRUE(Has(tooLong, "wsman:EncodingLimit")) << tooLong.body;
    EXPECT_TRUE(Has(tooLong, "faultDetail/MaxEnvelopeSizeExceeded<")) << tooLong.body;
    // Refused before anything is done.
    ExpectFault(kBasics + limit("8191"), "wsman:EncodingLimit", "MinimumEnvelopeLimit");
    for (const char* bad : {"", "many", "-1", "8192.5"})
        ExpectFault(kBasics + limit(bad), "wsman:SchemaValidationError");
}

TEST_F(RequestHeadersTest, MayAskForALanguage) {
    const auto locale = [](const std::string& language, const std::string& must = kMust) {
        return "<wsman:Locale xml:lang=\"" + language + "\"" + must + "/>";
    };
    for (const char* english : {"en", "en-US", "EN-gb"})
        ExpectDone(locale(english));
    ExpectDone(locale("de", ""));
    for (const char* other : {"de", "de-DE", "eng", ""})
        ExpectFault(kBasics + locale(other), "wsman:UnsupportedFeature", "Locale");
}

TEST_F(RequestHeadersTest, MaySetOptionsThatNeedNotBeKept) {
    const auto options = [](const std::string& attribute) {
        return "<wsman:OptionSet" + kMust + "><wsman:Option Name='verbose'" + attribute +
               ">1</wsman:Option></wsman:OptionSet>";
    };
    ExpectDone(options(""));
    ExpectDone(options(" MustComply='false'"));
    ExpectDone(options(" f:MustComply='true'"));
    ExpectFault(kBasics + options(" MustComply='true'"), "wsman:InvalidOptions", "NotSupported");
}

TEST_F(RequestHeadersTest, CannotAskForAFragment) {
    ExpectFault(kBasics + "<wsman:FragmentTransfer" + kMust + ">Name</wsman:FragmentTransfer>",
                "wsman:UnsupportedFeature", "FragmentLevelAccess");
}

}  // namespace
}  // namespace mpm::test
