// The enterprise part of a profile. No record on the wire has it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct EnterpriseProfileData {
    uint32_t eap_type = 0;                  // 1 PEAP, 2 TLS, 3 TTLS
    char server_certificates[4096] = {};    // PEM, one certificate after the other
    uint32_t server_certificates_size = 0;  // of all certificates, also of what does not fit
};

// Appends the certificates of the store "ROOT" that have these SHA-1 thumbprints as PEM text, and skips those
// that it does not have. Returns 0, or 1 when the store cannot be opened. Any thread.
uint32_t GetCertificatesByThumbprint(const std::vector<std::string>& thumbprints, std::string& output);
