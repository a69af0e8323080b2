// What a console's power buttons do at the WS-Management service: it finds the service of the host, and asks
// it for another power state.
#include "firmware/dash/Power.h"

#include <gtest/gtest.h>

#include <sstream>

#include "firmware/dash/Cim.h"
#include "firmware/dash/Enumerations.h"

namespace mpm::test {
namespace {

const std::string kService = "CIM_PowerManagementService";
const std::string kSystem = "CIM_ComputerSystem";
const std::string kAssociation = "CIM_AssociatedPowerManagementService";
const std::string kGet = "http://schemas.xmlsoap.org/ws/2004/09/transfer/Get";
const std::string kEnumeration = "http://schemas.xmlsoap.org/ws/2004/09/enumeration";
const std::string kDetail = "<wsman:FaultDetail>http://schemas.dmtf.org/wbem/wsman/1/wsman/faultDetail/";

std::string Selectors(const std::string& selectors) {
    return "<wsman:SelectorSet>" + selectors + "</wsman:SelectorSet>";
}
std::string Selector(const std::string& name, const std::string& value) {
    return "<wsman:Selector Name=\"" + name + "\">" + value + "</wsman:Selector>";
}
const std::string kSystemKeys = Selector("CreationClassName", kSystem) + Selector("Name", "ManagedSystem");
std::string Reference(const std::string& className, const std::string& keys) {
    return "<wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:Address>"
           "<wsa:ReferenceParameters><wsman:ResourceURI>" +
           CimUri(className) + "</wsman:ResourceURI>" + Selectors(keys) + "</wsa:ReferenceParameters>";
}
const std::string kHost = "<p:ManagedElement>" + Reference(kSystem, kSystemKeys) + "</p:ManagedElement>";
std::string State(const std::string& state) {
    return "<p:PowerState>" + state + "</p:PowerState>";
}

class PowerTest : public testing::Test {
  protected:
    PowerTest() {
        OfferPower(
            m_wsman, [this] { return m_hostName; },
            [this](MpmCommand command) { m_commands.push_back(command); });
    }

    HttpResponse Post(const std::string& action, const std::string& className, const std::string& body = "",
                      const std::string& selectors = "") {
        return m_wsman.Handle(
            {"POST", "/wsman", "application/soap+xml",
             R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" )"
             R"(xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing" )"
             R"(xmlns:wsen="http://schemas.xmlsoap.org/ws/2004/09/enumeration" )"
             R"(xmlns:wsman="http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"><s:Header><wsa:Action>)" +
                 action + "</wsa:Action><wsa:MessageID>uuid:9</wsa:MessageID><wsman:ResourceURI>" +
                 CimUri(className) + "</wsman:ResourceURI>" + selectors + "</s:Header><s:Body>" + body +
                 "</s:Body></s:Envelope>"});
    }
    HttpResponse Request(const std::string& parameters) {
        return Post(CimUri(kService) + "/RequestPowerStateChange", kService,
                    "<p:RequestPowerStateChange_INPUT xmlns:p=\"" + CimUri(kService) + "\">" + parameters +
                        "</p:RequestPowerStateChange_INPUT>");
    }
    HttpResponse Enumerate(const std::string& className, const std::string& more = "") {
        return Post(kEnumeration + "/Enumerate", className, "<wsen:Enumerate>" + more + "</wsen:Enumerate>");
    }
    HttpResponse Pull(const std::string& className, const std::string& context,
                      const std::string& more = "") {
        return Post(kEnumeration + "/Pull", className,
                    "<wsen:Pull><wsen:EnumerationContext>" + context + "</wsen:EnumerationContext>" + more +
                        "</wsen:Pull>");
    }
    // The text of the first element of this local name, anywhere in the answer.
    static std::string Text(const HttpResponse& response, const std::string& name) {
        pugi::xml_document document;
        EXPECT_TRUE(document.load_string(response.body.c_str())) << response.body;
        return document.select_node(("//*[local-name()='" + name + "']").c_str()).node().text().get();
    }
    static bool Has(const HttpResponse& response, const std::string& text) {
        return response.body.find(text) != std::string::npos;
    }
    static std::string Returned(const HttpResponse& response) {
        EXPECT_EQ(response.status, 200) << response.body;
        return Text(response, "ReturnValue");
    }
    static void ExpectFault(const HttpResponse& response, const std::string& subcode) {
        EXPECT_TRUE(response.status == 400 || response.status == 500) << response.body;
        EXPECT_TRUE(Has(response, "<s:Subcode><s:Value>" + subcode + "</s:Value>")) << response.body;
    }

    std::string m_hostName = "PC-7";
    std::vector<MpmCommand> m_commands;
    Wsman m_wsman;
};

TEST_F(PowerTest, CarriesOutEachPowerStateByTheHostsCommand) {
    const std::pair<const char*, MpmCommand> expected[] = {
        {"3", MPM_ZEL_CMD_HOST_SLEEP_LIGHT}, {"4", MPM_ZEL_CMD_HOST_SLEEP_LIGHT},
        {"5", MPM_ZEL_CMD_HOST_CYCLE_SOFT},  {"6", MPM_ZEL_CMD_HOST_OFF_HARD},
        {"7", MPM_ZEL_CMD_HOST_HIBERNATE},   {"8", MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE},
        {"10", MPM_ZEL_CMD_HOST_CYCLE_SOFT}, {"12", MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE},
    };
    for (const auto& [state, command] : expected) {
        m_commands.clear();
        EXPECT_EQ(Returned(Request(State(state) + kHost)), "0") << state;
        EXPECT_EQ(m_commands, std::vector{command}) << state;
    }
}

TEST_F(PowerTest, HasNothingToDoForAHostThatIsOn) {
    EXPECT_EQ(Returned(Request(State("2") + kHost)), "0");
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, ReturnsThatAStateIsNotSupported) {
    for (const char* state : {"0", "1", "9", "11", "13", "14", "15", "16", "65535"})
        EXPECT_EQ(Returned(Request(State(state) + kHost)), "1") << state;
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, ActsOnNothingButTheHostItself) {
    const std::string otherName = Selector("CreationClassName", kSystem) + Selector("Name", "Other");
    for (const std::string& element :
         {std::string(), std::string("<p:ManagedElement/>"),
          "<p:ManagedElement>" + Reference(kSystem, otherName) + "</p:ManagedElement>",
          "<p:ManagedElement>" + Reference(kService, kSystemKeys) + "</p:ManagedElement>",
          "<p:ManagedElement>" + Reference(kSystem, "") + "</p:ManagedElement>",
          "<p:ManagedElement>" +
              Reference(kSystem, Selector("Name", "ManagedSystem") + Selector("Name", "ManagedSystem")) +
              "</p:ManagedElement>"})
        EXPECT_EQ(Returned(Request(State("6") + element)), "5") << element;
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, TakesNeitherATimeNorATimeOut) {
    EXPECT_EQ(Returned(Request(State("6") + kHost +
                               "<p:TimeoutPeriod>00000000000100.000000:000"
                               "</p:TimeoutPeriod>")),
              "4098");
    EXPECT_EQ(Returned(Request(State("6") + kHost +
                               "<p:Time><c:Datetime xmlns:c=\"urn:c\">2030-01-01T00:00:00Z"
                               "</c:Datetime></p:Time>")),
              "1");
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, RefusesAPowerStateThatIsNoNumber) {
    for (const char* state : {"", "off", "6x", "-6", "6 6", "65536", "99999999999999999999"})
        ExpectFault(Request(State(state) + kHost), "wsman:InvalidParameter");
    ExpectFault(Request(kHost), "wsman:InvalidParameter");
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, PassesOverWhiteSpaceAroundValues) {
    EXPECT_EQ(Returned(Request(State("\n  6\t") + kHost)), "0");
    const std::string keys =
        Selector("CreationClassName", "\n" + kSystem + "\n") + Selector("Name", " ManagedSystem ");
    EXPECT_EQ(Post("\n " + kGet + " \n", kSystem + "\n", "", Selectors(keys)).status, 200);
}

TEST_F(PowerTest, TakesNamesOfClassesAndKeysInAnyCase) {
    const std::string keys =
        Selector("creationclassname", "cim_COMPUTERsystem") + Selector("NAME", "ManagedSystem");
    EXPECT_EQ(Post(kGet, "cim_computersystem", "", Selectors(keys)).status, 200);
    ExpectFault(Post(kGet, kSystem, "",
                     Selectors(Selector("CreationClassName", kSystem) + Selector("Name", "MANAGEDSYSTEM"))),
                "wsman:InvalidSelectors");
    const std::string service = "cim_powermanagementservice";
    const HttpResponse response =
        Post(CimUri(service) + "/requestpowerstatechange", service,
             "<p:RequestPowerStateChange_INPUT xmlns:p=\"" + CimUri(service) + "\">" + State("6") +
                 "<p:ManagedElement>" + Reference("CIM_COMPUTERSYSTEM", keys) + "</p:ManagedElement>" +
                 "</p:RequestPowerStateChange_INPUT>");
    EXPECT_EQ(Returned(response), "0");
    EXPECT_EQ(m_commands, std::vector{MPM_ZEL_CMD_HOST_OFF_HARD});
    ExpectFault(Post("HTTP://schemas.xmlsoap.org/ws/2004/09/transfer/get", kSystem),
                "wsa:ActionNotSupported");
}

TEST_F(PowerTest, KnowsOneNamespace) {
    const std::string own = Selector("__cimnamespace", "root/cimv2");
    EXPECT_EQ(Post(kGet, kSystem, "", Selectors(own)).status, 200);
    EXPECT_EQ(
        Post(kGet, kSystem, "", Selectors(Selector("__CIMNAMESPACE", "ROOT/CIMV2") + kSystemKeys)).status,
        200);
    EXPECT_EQ(Post(kEnumeration + "/Enumerate", kSystem, "<wsen:Enumerate/>", Selectors(own)).status, 200);
    const std::string other = Selectors(Selector("__cimnamespace", "root/other"));
    for (const HttpResponse& response :
         {Post(kGet, kSystem, "", other),
          Post(kEnumeration + "/Enumerate", kSystem, "<wsen:Enumerate/>", other)}) {
        ExpectFault(response, "wsman:InvalidSelectors");
        EXPECT_TRUE(Has(response, kDetail + "InvalidValue<")) << response.body;
    }
}

TEST_F(PowerTest, SaysWhatIsWrongWithTheSelectors) {
    for (const auto& [keys, detail] :
         {std::pair{Selector("Name", "ManagedSystem"), "InsufficientSelectors"},
          {kSystemKeys + Selector("Colour", "red"), "UnexpectedSelectors"},
          {kSystemKeys + Selector("name", "ManagedSystem"), "DuplicateSelectors"},
          {Selector("CreationClassName", kSystem) + Selector("Name", "Other"), "InvalidValue"}}) {
        const HttpResponse response = Post(kGet, kSystem, "", Selectors(keys));
        ExpectFault(response, "wsman:InvalidSelectors");
        EXPECT_TRUE(Has(response, kDetail + detail + "<")) << response.body;
    }
    EXPECT_TRUE(Has(Post(kGet, "CIM_Fan"), kDetail + "InvalidResourceURI<"));
}

TEST_F(PowerTest, RefusesABodyThatIsNoInput) {
    const std::string action = CimUri(kService) + "/RequestPowerStateChange";
    ExpectFault(Post(action, kService, "<x/>"), "wsman:SchemaValidationError");
    ExpectFault(Post(action, kService), "wsman:SchemaValidationError");
    ExpectFault(Post(action, kSystem), "wsa:DestinationUnreachable");
    EXPECT_TRUE(m_commands.empty());
}

TEST_F(PowerTest, AnswersUnderTheRequestsActionAndMessage) {
    const HttpResponse response = Request(State("6") + kHost);
    EXPECT_EQ(Text(response, "Action"), CimUri(kService) + "/RequestPowerStateChangeResponse");
    EXPECT_EQ(Text(response, "RelatesTo"), "uuid:9");
}

TEST_F(PowerTest, GivesTheHostByItsNameAndKeys) {
    const HttpResponse response = Post(kGet, kSystem, "", Selectors(kSystemKeys));
    EXPECT_EQ(response.status, 200) << response.body;
    EXPECT_EQ(Text(response, "ElementName"), "PC-7");
    EXPECT_EQ(Text(response, "Action"), kGet + "Response");
    m_hostName.clear();
    EXPECT_EQ(Text(Post(kGet, kSystem), "ElementName"), "Managed System");
}

TEST_F(PowerTest, KnowsNoInstanceByWrongSelectors) {
    for (const std::string& keys :
         {std::string(), Selector("Name", "ManagedSystem"), kSystemKeys + Selector("Colour", "red"),
          Selector("CreationClassName", "x") + Selector("Name", "ManagedSystem")})
        ExpectFault(Post(kGet, kSystem, "", Selectors(keys)), "wsman:InvalidSelectors");
}

TEST_F(PowerTest, KnowsNoOtherClass) {
    ExpectFault(Post(kGet, "CIM_Fan"), "wsa:DestinationUnreachable");
    ExpectFault(Enumerate("CIM_Fan"), "wsa:DestinationUnreachable");
}

TEST_F(PowerTest, LeadsAConsoleFromTheAssociationToTheHostAndItsService) {
    const std::string context = Text(Enumerate(kAssociation), "EnumerationContext");
    const HttpResponse pulled = Pull(kAssociation, context);
    EXPECT_EQ(pulled.status, 200) << pulled.body;
    EXPECT_TRUE(Has(pulled, "<wsen:EndOfSequence")) << pulled.body;
    EXPECT_EQ(Text(pulled, "PowerState"), "2");
    for (const char* state : {"2", "3", "4", "5", "6", "7", "8", "10", "12"})
        EXPECT_TRUE(Has(pulled, std::string("<p:AvailableRequestedPowerStates>") + state + "<")) << state;
    // The very references that it is given lead on: to the method's parameter, and to a Get of each class.
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(pulled.body.c_str()));
    for (const auto& [name, className] :
         {std::pair{"UserOfService", kSystem}, {"ServiceProvided", kService}}) {
        const pugi::xml_node selectors =
            document
                .select_node(
                    (std::string("//*[local-name()='") + name + "']//*[local-name()='SelectorSet']").c_str())
                .node();
        std::ostringstream text;
        selectors.print(text, "", pugi::format_raw);
        EXPECT_EQ(Post(kGet, className, "", text.str()).status, 200) << text.str();
    }
}

TEST_F(PowerTest, GivesReferencesInsteadWhenAsked) {
    const std::string context =
        Text(Enumerate(kAssociation, "<wsman:EnumerationMode>EnumerateEPR</wsman:EnumerationMode>"),
             "EnumerationContext");
    const HttpResponse pulled = Pull(kAssociation, context, "<wsen:MaxElements>10</wsen:MaxElements>");
    EXPECT_EQ(Text(pulled, "ResourceURI"), CimUri(kAssociation)) << pulled.body;
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(pulled.body.c_str()));
    std::ostringstream text;
    document.select_node("//*[local-name()='SelectorSet']").node().print(text, "", pugi::format_raw);
    EXPECT_EQ(Text(Post(kGet, kAssociation, "", text.str()), "PowerState"), "2");
}

TEST_F(PowerTest, RefusesFiltersModesAndContextsThatItDoesNotKnow) {
    ExpectFault(Enumerate(kSystem, "<wsman:Filter>select</wsman:Filter>"), "wsen:FilteringNotSupported");
    ExpectFault(Enumerate(kSystem, "<wsman:EnumerationMode>All</wsman:EnumerationMode>"),
                "wsman:UnsupportedFeature");
    ExpectFault(Enumerate(kSystem, "<wsen:EndTo/>"), "wsman:UnsupportedFeature");
    const std::string context = Text(Enumerate(kSystem), "EnumerationContext");
    for (const std::string& other : {std::string(), std::string("x"), context + "0"})
        ExpectFault(Pull(kSystem, other), "wsen:InvalidEnumerationContext");
    ExpectFault(Pull(kService, context), "wsen:InvalidEnumerationContext");
    for (const char* count : {"0", "-1", "many", ""})
        ExpectFault(Pull(kSystem, context, std::string("<wsen:MaxElements>") + count + "</wsen:MaxElements>"),
                    "wsman:SchemaValidationError");
    ExpectFault(Post(kEnumeration + "/Pull", kSystem), "wsman:SchemaValidationError");
}

TEST_F(PowerTest, ReleasesAnEnumeration) {
    const std::string context = Text(Enumerate(kSystem), "EnumerationContext");
    const auto release = [&] {
        return Post(kEnumeration + "/Release", kSystem,
                    "<wsen:Release><wsen:EnumerationContext>" + context +
                        "</wsen:EnumerationContext></wsen:Release>");
    };
    EXPECT_EQ(release().status, 200);
    ExpectFault(Pull(kSystem, context), "wsen:InvalidEnumerationContext");
    ExpectFault(release(), "wsen:InvalidEnumerationContext");
}

TEST_F(PowerTest, PullsEachEnumerationOnce) {
    const std::string first = Text(Enumerate(kSystem), "EnumerationContext");
    const std::string second = Text(Enumerate(kSystem), "EnumerationContext");
    EXPECT_NE(first, second);
    EXPECT_EQ(Pull(kSystem, first).status, 200);
    ExpectFault(Pull(kSystem, first), "wsen:InvalidEnumerationContext");
    EXPECT_EQ(Pull(kSystem, second).status, 200);
}

TEST_F(PowerTest, ForgetsTheOldestOfManyEnumerations) {
    const std::string first = Text(Enumerate(kSystem), "EnumerationContext");
    const std::string second = Text(Enumerate(kSystem), "EnumerationContext");
    for (size_t i = 1; i < Enumerations::kMax; ++i)
        Enumerate(kSystem);
    ExpectFault(Pull(kSystem, first), "wsen:InvalidEnumerationContext");
    EXPECT_EQ(Pull(kSystem, second).status, 200);
}

}  // namespace
}  // namespace mpm::test
