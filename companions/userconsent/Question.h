// What the service asks and what it can be answered.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// The third word is spelt so.
constexpr const char* kConsentYes = "Consent_yes";
constexpr const char* kConsentNo = "Consent_no";
constexpr const char* kConsentNoResponse = "Consent_noreponce";

struct Question {
    uint32_t type = 0;
    uint32_t timeout = 0;  // seconds, as the service gives them

    // How long the service waits in truth.
    std::chrono::seconds Limit() const;
};

// Three lines: "yes", the type, the time-out. Nothing for another text.
std::optional<Question> ParseQuestion(const std::string& text);
