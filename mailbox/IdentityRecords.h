// Certificate enrolment and the service account's password. Packed and little-endian, as on the wire.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

// The payload of MPM_ZEL_CMD_CSR.
struct CsrRequest {
    char ADCSName[64];  // host of the certificate authority
    char RootCAName[64];
    char ADCSTemplateName[64];
    uint32_t CSRSize;
    char CSR[4096];
    uint32_t IsRootCARequired;
};
static_assert(sizeof(CsrRequest) == 4296 && offsetof(CsrRequest, CSRSize) == 192 &&
              offsetof(CsrRequest, IsRootCARequired) == 4292);
RECORD_FIELDS(CsrRequest, FIELD_AS(ADCSName, Text), FIELD_AS(RootCAName, Text),
              FIELD_AS(ADCSTemplateName, Text), FIELD(CSRSize), FIELD_AS(CSR, Data), FIELD(IsRootCARequired));

// The input of WriteCSRResponse. A failed enrolment shows as sizes of 0.
struct CsrResponse {
    uint32_t SignedCertSize;
    char SignedCert[4096];
    uint32_t RootCertSize;
    char RootCert[4096];
};
static_assert(sizeof(CsrResponse) == 8200 && offsetof(CsrResponse, RootCertSize) == 4100);
RECORD_FIELDS(CsrResponse, FIELD(SignedCertSize), FIELD_AS(SignedCert, Data), FIELD(RootCertSize),
              FIELD_AS(RootCert, Data));

// The payload of MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD. Never logged.
struct ADPasswordUpdate {
    char OldPassword[128];
    char NewPassword[128];
};
static_assert(sizeof(ADPasswordUpdate) == 256);
RECORD_FIELDS(ADPasswordUpdate, FIELD_AS(OldPassword, Secret), FIELD_AS(NewPassword, Secret));

// The input of WritePwdUpdateStatus.
struct PwdUpdateStatus {
    uint32_t status;  // 0: changed
};
static_assert(sizeof(PwdUpdateStatus) == 4);
RECORD_FIELDS(PwdUpdateStatus, FIELD(status));

#pragma pack(pop)
