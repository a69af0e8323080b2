// Certificates for the firmware from the enterprise's authority. The firmware makes a key and a request, and
// examines what the host returns. The keys stay in memory: no record and no message has one.
#pragma once

#include <json/json.h>

#include <deque>
#include <mutex>
#include <string>

#include "firmware/dash/Certificate.h"
#include "mailbox/IdentityRecords.h"

namespace mpm {

// Where the request goes, and for whom it is. The first three are cut to 64 bytes each.
struct EnrolmentNames {
    std::string host, authority, certificateTemplate;
    std::string subject = "mpmsim";
};

// Any thread.
class Enrolments {
  public:
    // Makes a key (EC P-256) and the request for its certificate. The keys of the last 16 requests are kept.
    // Throws std::runtime_error with OpenSSL's reason.
    CsrRequest Begin(const EnrolmentNames& names);

    // Returns what the host's answer is worth: {"answers": 1, "signedCertSize": ..., "rootCertSize": ...,
    // "subject": ..., "issuer": ..., "root": ..., "matchesKey": true, "chainsToRoot": true, "verdict": ...}.
    // The names are left out where there is no certificate. A key whose certificate has come is forgotten.
    Json::Value Examine(const CsrResponse& response);

    // The last result of Examine; null before.
    Json::Value Last() const;

  private:
    bool TakeKeyOf(X509* certificate);

    static constexpr size_t kMostKeys = 16;
    mutable std::mutex m_mutex;  // guards what follows
    std::deque<testbed::KeyPointer> m_keys;
    unsigned m_answers = 0;
    Json::Value m_last;
};

}  // namespace mpm
