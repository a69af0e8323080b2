// The question whether a remote console may view or control the host, and its answer. Packed and
// little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

inline constexpr uint32_t kConsentGiven = 1;
inline constexpr uint32_t kConsentRefused = 2;

#pragma pack(push, 1)

// The payload of MPM_ZEL_CMD_GET_KVM_CONSENT.
struct UserConsentQuestion {
    uint32_t Type;     // kind of consent; 0: the service asks no question
    uint32_t Timeout;  // seconds
};
static_assert(sizeof(UserConsentQuestion) == 8);
RECORD_FIELDS(UserConsentQuestion, FIELD(Type), FIELD(Timeout));

// The input of WriteUserConsent.
struct UserConsentAnswer {
    uint32_t Type;     // as in the question
    uint32_t Consent;  // kConsentGiven or kConsentRefused
    uint32_t reserved;
};
static_assert(sizeof(UserConsentAnswer) == 12);
RECORD_FIELDS(UserConsentAnswer, FIELD(Type), FIELD(Consent), FIELD(reserved));

#pragma pack(pop)
