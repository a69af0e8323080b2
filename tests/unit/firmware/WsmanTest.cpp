// What the WS-Management service answers to a POST.
#include "firmware/dash/Wsman.h"

#include <gtest/gtest.h>

#include <random>

namespace mpm::test {
namespace {

const std::string kIdentify =
    R"(<?xml version="1.0"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" )"
    R"(xmlns:wsmid="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd">)"
    R"(<s:Header/><s:Body><wsmid:Identify/></s:Body></s:Envelope>)";

std::string Envelope(const std::string& header, const std::string& body) {
    return R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" )"
           R"(xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"><s:Header>)" +
           header + "</s:Header><s:Body>" + body + "</s:Body></s:Envelope>";
}

class WsmanTest : public testing::Test {
  protected:
    WsmanTest() {
        OfferIdentify(m_wsman, [] { return Identity{"Vendor & Sons", "5.0.0.1", "1.2.0"}; });
    }
    HttpResponse Post(const std::string& body,
                      const std::string& type = "application/soap+xml;charset=UTF-8") {
        return m_wsman.Handle({"POST", "/wsman", type, body});
    }
    // The text at a path of local names, such as "Envelope/Body/Fault/Code/Value".
    static std::string TextAt(const HttpResponse& response, const std::string& path) {
        pugi::xml_document document;
        EXPECT_TRUE(document.load_string(response.body.c_str())) << response.body;
        std::string query;
        for (size_t at = 0, next; at <= path.size(); at = next + 1) {
            next = std::min(path.find('/', at), path.size());
            query += "/*[local-name()='" + path.substr(at, next - at) + "']";
        }
        return document.select_node(query.c_str()).node().text().get();
    }
    static std::string Subcode(const HttpResponse& response) {
        return TextAt(response, "Envelope/Body/Fault/Code/Subcode/Value");
    }
    static std::string Code(const HttpResponse& response) {
        return TextAt(response, "Envelope/Body/Fault/Code/Value");
    }

    Wsman m_wsman;
};

TEST_F(WsmanTest, IdentifiesItself) {
    const HttpResponse response = Post(kIdentify);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.contentType, "application/soap+xml;charset=UTF-8");
    EXPECT_EQ(TextAt(response, "Envelope/Body/IdentifyResponse/ProtocolVersion"),
              "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd");
    EXPECT_EQ(TextAt(response, "Envelope/Body/IdentifyResponse/ProductVendor"), "Vendor & Sons");
    EXPECT_EQ(TextAt(response, "Envelope/Body/IdentifyResponse/ProductVersion"), "5.0.0.1");
    EXPECT_EQ(TextAt(response, "Envelope/Body/IdentifyResponse/DASHVersion"), "1.2.0");
}

TEST_F(WsmanTest, GoesByTheNamespaceAndNotByThePrefix) {
    EXPECT_EQ(Post(R"(<Envelope xmlns="http://www.w3.org/2003/05/soap-envelope"><Body>
                      <Identify xmlns="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd"/>
                      </Body></Envelope>)")
                  .status,
              200);
    EXPECT_EQ(Post(Envelope("", R"(<wsmid:Identify xmlns:wsmid="urn:other"/>)")).status, 400);
}

TEST_F(WsmanTest, IdentifiesItselfUnderThePathThatNeedsNoUser) {
    m_wsman.Offer("urn:do", [](const SoapMessage&, SoapAnswer&) { FAIL() << "carried out"; });
    m_wsman.GuardBy([](const HttpRequest&) { return HttpResponse{401, "", "", ""}; });
    const auto post = [this](const std::string& body) {
        return m_wsman.Handle({"POST", "/wsman-anon/identify", "application/soap+xml", body});
    };
    EXPECT_EQ(TextAt(post(kIdentify), "Envelope/Body/IdentifyResponse/ProductVendor"), "Vendor & Sons");
    const HttpResponse other =
        post(Envelope("<wsa:Action>urn:do</wsa:Action><wsa:MessageID>uuid:1</wsa:MessageID>", "<x/>"));
    EXPECT_EQ(other.status, 400);
    EXPECT_EQ(Subcode(other), "wsa:ActionNotSupported");
    EXPECT_EQ(m_wsman.Handle({"GET", "/wsman-anon/identify", "", ""}).status, 405);
    EXPECT_EQ(m_wsman.Handle({"POST", "/wsman-anon", "application/soap+xml", kIdentify}).status, 404);
}

TEST_F(WsmanTest, AnswersOtherPathsMethodsAndTypesWithTheirStatus) {
    EXPECT_EQ(m_wsman.Handle({"POST", "/", "application/soap+xml", kIdentify}).status, 404);
    const HttpResponse get = m_wsman.Handle({"GET", "/wsman", "", ""});
    EXPECT_EQ(get.status, 405);
    EXPECT_EQ(get.extraHeaders, "Allow: POST\r\n");
    for (const char* type : {"", "text/html", "application/soap", "application/soap+xmlx"})
        EXPECT_EQ(Post(kIdentify, type).status, 415) << type;
    EXPECT_EQ(Post(kIdentify, "Application/SOAP+XML ; charset=utf-8").status, 200);
}

TEST_F(WsmanTest, AnswersBrokenXmlWith400AndAFault) {
    for (const char* text : {"", "hello", "<a", "<a></b>", "<s:Envelope/>", "<a/>"}) {
        const HttpResponse response = Post(text);
        EXPECT_EQ(response.status, 400) << text;
        EXPECT_EQ(Subcode(response), "wsman:SchemaValidationError") << text;
    }
}

TEST_F(WsmanTest, RefusesADocumentType) {
    EXPECT_EQ(Subcode(Post("<!DOCTYPE a [<!ENTITY x 'y'>]>" + kIdentify.substr(kIdentify.find("<s:")))),
              "wsman:SchemaValidationError");
}

TEST_F(WsmanTest, RefusesDeepNesting) {
    std::string open, close;
    for (int i = 0; i < 8000; ++i) {
        open += "<a>";
        close += "</a>";
    }
    const HttpResponse response = Post(Envelope("", open + close));
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(TextAt(response, "Envelope/Body/Fault/Reason/Text"), "The message is nested too deeply.");
}

TEST_F(WsmanTest, KnowsOnlySoap12) {
    const HttpResponse response =
        Post(R"(<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body/></s:Envelope>)");
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(Code(response), "s:VersionMismatch");
}

TEST_F(WsmanTest, NamesAnActionThatItDoesNotOffer) {
    const HttpResponse response =
        Post(Envelope("<wsa:Action>urn:do</wsa:Action><wsa:MessageID>uuid:7</wsa:MessageID>", "<x/>"));
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(Code(response), "s:Sender");
    EXPECT_EQ(Subcode(response), "wsa:ActionNotSupported");
    EXPECT_EQ(TextAt(response, "Envelope/Header/RelatesTo"), "uuid:7");
    EXPECT_EQ(TextAt(response, "Envelope/Header/Action"),
              "http://schemas.xmlsoap.org/ws/2004/08/addressing/fault");
}

TEST_F(WsmanTest, MissesAnActionWhereThereIsNone) {
    EXPECT_EQ(Subcode(Post(Envelope("", "<x/>"))), "wsa:MessageInformationHeaderRequired");
    EXPECT_EQ(Subcode(Post(Envelope("", ""))), "wsa:MessageInformationHeaderRequired");
}

TEST_F(WsmanTest, RefusesAHeaderThatItMustButDoesNotUnderstand) {
    const HttpResponse response =
        Post(Envelope(R"(<x:Strange xmlns:x="urn:x" s:mustUnderstand="true"/>)", ""));
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(Code(response), "s:MustUnderstand");
}

TEST_F(WsmanTest, CarriesOutAnOperationThatWasOffered) {
    m_wsman.Offer("urn:do", [](const SoapMessage& request, SoapAnswer& answer) {
        if (!request.Body().first_child())
            throw SoapFault("s:Receiver", "wsman:InternalError", "nothing to do");
        AppendText(answer.Body(), "Done", "yes");
    });
    const std::string header = "<wsa:Action>urn:do</wsa:Action><wsa:MessageID>uuid:1</wsa:MessageID>";
    EXPECT_EQ(TextAt(Post(Envelope(header, "<x/>")), "Envelope/Body/Done"), "yes");
    const HttpResponse fault = Post(Envelope(header, ""));
    EXPECT_EQ(fault.status, 500);
    EXPECT_EQ(Subcode(fault), "wsman:InternalError");
    EXPECT_EQ(TextAt(fault, "Envelope/Header/Action"), "http://schemas.dmtf.org/wbem/wsman/1/wsman/fault");
}

TEST_F(WsmanTest, AnswersOnlyAnIdentifyToAClientThatIsNotKnown) {
    m_wsman.Offer("urn:do", [](const SoapMessage&, SoapAnswer&) { FAIL() << "carried out"; });
    m_wsman.GuardBy([](const HttpRequest&) { return HttpResponse{401, "", "", "X: y\r\n"}; });
    EXPECT_EQ(Post(kIdentify).status, 200);
    for (const std::string& text :
         {Envelope("<wsa:Action>urn:do</wsa:Action>", "<x/>"),
          Envelope("<wsa:Action>urn:other</wsa:Action>", "<x/>"), std::string(""), std::string("no XML")}) {
        EXPECT_EQ(Post(text).status, 401) << text;
        EXPECT_EQ(Post(text).extraHeaders, "X: y\r\n");
    }
}

TEST_F(WsmanTest, SurvivesMutatedEnvelopes) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::string text = kIdentify;
        for (int i = 0; i < 1 + round % 10; ++i)
            text[random() % text.size()] = char(random());
        const HttpResponse response = Post(text);
        EXPECT_TRUE(response.status == 200 || response.status == 400 || response.status == 500);
    }
}

}  // namespace
}  // namespace mpm::test
