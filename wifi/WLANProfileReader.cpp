#include "wifi/WLANProfileReader.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "base/FieldText.h"
#include "base/Log.h"

namespace {

using Node = WLANProfileReader::Node;

constexpr uint32_t kWpa3GroupManagement = 4;

// Every element begins with such a bracket, in comments and other places there may be more.
size_t MostElements(std::string_view text) {
    size_t count = 0;
    for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        const char next = at + 1 < text.size() ? text[at + 1] : '\0';
        if (next != '/' && next != '!' && next != '?') ++count;
    }
    return count;
}

// The first child of that name. A step that is missing ends a path without a message.
const Node* Child(const Node* parent, const char* name) {
    return parent ? WLANProfileReader::FindChildNode(name, parent) : nullptr;
}

// All text of a node, which may stand in several parts. Empty without a node.
std::string TextOf(const Node* node) {
    std::string text;
    for (const Node* part = node ? node->first_node() : nullptr; part; part = part->next_sibling())
        if (part->type() == rapidxml::node_data || part->type() == rapidxml::node_cdata)
            text.append(part->value(), part->value_size());
    return text;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string WithoutBlanks(std::string text) {
    std::erase_if(text, [](unsigned char c) { return std::isspace(c) != 0; });
    return text;
}

void CopyCertificates(const std::string& output, EnterpriseProfileData& data) {
    const size_t copied = output.copy(data.server_certificates, sizeof data.server_certificates);
    LogDebug("Copied elements: %zu", copied);
    data.server_certificates_size = static_cast<uint32_t>(output.size());
}

}  // namespace

void WLANProfileReader::Load(std::string xmlUtf8) {
    m_profileNode = m_securityNode = nullptr;
    m_document = std::make_unique<rapidxml::xml_document<>>();
    m_text = std::move(xmlUtf8);
    if (m_text.size() > kMaxProfileSize) throw rapidxml::parse_error("profile is too long", m_text.data());
    if (MostElements(m_text) > kMaxElements)
        throw rapidxml::parse_error("profile has too many elements", m_text.data());
    m_document->parse<rapidxml::parse_validate_closing_tags>(m_text.data());
    m_profileNode = FindChildNode("WLANProfile", m_document.get());
    m_securityNode = Child(Child(m_profileNode, "MSM"), "security");
}

const Node* WLANProfileReader::FindChildNode(const char* name, const Node* parent) {
    if (parent) return parent->first_node(name);
    LogError("parent Node is null");
    return nullptr;
}

std::string WLANProfileReader::GetAttribute(const char* name, const Node* node) {
    if (!node) {
        LogError("Node object is null");
        return {};
    }
    if (const auto* const attribute = node->first_attribute(name))
        return {attribute->value(), attribute->value_size()};
    LogError("Attribute not found, for attribute name: %s", name);
    return {};
}

void WLANProfileReader::ReadProfile(WiFiSyncInfo& record) const {
    if (const Node* const ssidConfig = Child(m_profileNode, "SSIDConfig"))
        CopyToField(record.ssid, TextOf(Child(Child(ssidConfig, "SSID"), "name")));
    const Node* const authentication = Child(Child(m_securityNode, "authEncryption"), "authentication");
    if (!authentication) return;
    const std::string kind = Lower(TextOf(authentication));
    if (kind.find("wpa3") != std::string::npos) {
        record.pmf = 1;
        record.group_mgmt = kWpa3GroupManagement;
        record.pairwise = record.groupwise = WiFiCipher::Ccmp;
    }
    if (kind == "wpa2psk") {
        record.wpaauth = WpaAuth::Wpa2Personal;
        record.pairwise = record.groupwise = WiFiCipher::CcmpAndTkip;
        ReadSharedKey(m_securityNode, record);
    } else if (kind == "wpa3sae") {
        record.wpaauth = WpaAuth::Wpa3Personal;
        ReadSharedKey(m_securityNode, record);
    } else if (kind == "wpa2") {
        record.wpaauth = WpaAuth::Wpa2Enterprise;
    } else if (kind == "wpa3") {
        record.wpaauth = WpaAuth::Wpa3Enterprise;
    } else if (kind == "open") {
        record.wpaauth = WpaAuth::Open;
    }
}

void WLANProfileReader::ReadSharedKey(const Node* security, WiFiSyncInfo& record) {
    const Node* const sharedKey = Child(security, "sharedKey");
    if (TextOf(Child(sharedKey, "keyType")) != "passPhrase") return;
    if (const Node* const keyMaterial = Child(sharedKey, "keyMaterial"))
        CopyToField(record.key_material, TextOf(keyMaterial));
}

void WLANProfileReader::ReadEnterpriseProfile(EnterpriseProfileData& data) const {
    const Node* const oneX = Child(m_securityNode, "OneX");
    if (!oneX) return;
    if (const Node* const authMode = Child(oneX, "authMode")) LogInfo("authMode %s", TextOf(authMode));
    const Node* const eapHostConfig = Child(Child(oneX, "EAPConfig"), "EapHostConfig");
    const Node* const type = Child(Child(eapHostConfig, "EapMethod"), "Type");
    if (!type) return;
    const std::string eap = TextOf(type);
    LogInfo("EAP-AuthType %s", eap);
    if (eap != "13" && eap != "21" && eap != "25") return;
    std::vector<std::string> thumbprints;
    ReadServerValidation(eapHostConfig, thumbprints);
    LogInfo("Number of Server Certificates: %zu", thumbprints.size());
    if (!thumbprints.empty()) {
        std::string output;
        GetCertificatesByThumbprint(thumbprints, output);
        LogInfo("Number of Server Certificates: %zu", thumbprints.size());
        if (!output.empty()) CopyCertificates(output, data);
    }
    if (eap == "13") {
        data.eap_type = 2;
        LogInfo("TLS");
    } else if (eap == "21") {
        data.eap_type = 3;
        LogInfo("TTLS");
    } else {
        data.eap_type = 1;
        LogInfo("PEAP");
    }
}

void WLANProfileReader::ReadServerValidation(const Node* eapHostConfig,
                                             std::vector<std::string>& thumbprints) {
    const Node* const eapType = Child(Child(Child(eapHostConfig, "Config"), "Eap"), "EapType");
    const Node* const validation = Child(eapType, "ServerValidation");
    for (const Node* child = validation ? validation->first_node() : nullptr; child;
         child = child->next_sibling()) {
        if (child->type() != rapidxml::node_element) continue;
        const std::string name(child->name(), child->name_size());
        LogInfo("Server Validation Node: %s", name);
        if (name != "TrustedRootCA") continue;
        thumbprints.push_back(WithoutBlanks(TextOf(child)));
        LogInfo("CACert Thumbprint: %s", thumbprints.back());
    }
}
