// Reads the settings of a network from its WLANProfile XML.
#pragma once

#include <rapidxml.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mailbox/WiFiSyncRecord.h"
#include "wifi/EnterpriseProfile.h"

// One thread at a time.
class WLANProfileReader {
  public:
    using Node = rapidxml::xml_node<>;

    // A profile of Windows has some dozens of elements and a few kilobytes. The parser calls itself for each
    // nested element, so that the number of elements bounds the stack that it needs.
    static constexpr size_t kMaxProfileSize = size_t{256} * 1024;  // bytes
    static constexpr size_t kMaxElements = 1000;

    // Throws rapidxml::parse_error for text that is no XML, or more of it than the limits allow. The message
    // of the exception holds nothing of the text.
    explicit WLANProfileReader(std::string xmlUtf8) { Load(std::move(xmlUtf8)); }
    WLANProfileReader(const WLANProfileReader&) = delete;
    WLANProfileReader& operator=(const WLANProfileReader&) = delete;

    // Replaces the document. Throws as the constructor does; the reader has no profile then.
    void Load(std::string xmlUtf8);

    // Returns the first child of that name, or null.
    static const Node* FindChildNode(const char* name, const Node* parent);
    // Returns the attribute's value, or an empty text.
    static std::string GetAttribute(const char* name, const Node* node);

    // Fills the SSID, the fields of the authentication and the key. What the profile does not have stays as
    // it is.
    void ReadProfile(WiFiSyncInfo& record) const;
    // Fills the enterprise part and leaves what the profile does not have.
    void ReadEnterpriseProfile(EnterpriseProfileData& data) const;

  private:
    static void ReadSharedKey(const Node* security, WiFiSyncInfo& record);
    static void ReadServerValidation(const Node* eapHostConfig, std::vector<std::string>& thumbprints);

    // The document lies in the text.
    std::string m_text;
    std::unique_ptr<rapidxml::xml_document<>> m_document;
    const Node* m_profileNode = nullptr;   // null: the root is no WLANProfile
    const Node* m_securityNode = nullptr;  // WLANProfile/MSM/security, or null
};
