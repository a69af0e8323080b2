// The service's question and the possible answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// The protocol spells the third text this way.
constexpr const char* kConsentYes = "Consent_yes";
constexpr const char* kConsentNo = "Consent_no";
constexpr const char* kConsentNoResponse = "Consent_noreponce";

struct Question {
    uint32_t type = 0;
    uint32_t timeout = 0;  // seconds, as the service sends them

    // Returns the time that the service actually waits.
    std::chrono::seconds Limit() const;
};

// Parses the three lines "yes", the type and the time-out. Returns no value for any other text.
std::optional<Question> ParseQuestion(const std::string& text);
