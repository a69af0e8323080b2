// The SOAP headers of a request as WS-Management rules them: which have to be understood, and which ask for
// something that this service does not do.
#pragma once

#include <cstddef>
#include <optional>

#include "firmware/dash/Soap.h"

namespace mpm {

// The largest envelope that every client has to accept; a request for a smaller one is refused.
inline constexpr size_t kSmallestMaxEnvelope = 8192;

// Throws SoapFault for a header that has to be understood and is not, and for one that is there twice.
// Headers for another role are passed over.
void CheckUnderstood(const SoapMessage& request);

// What a request with an action needs in addition: a message id, an answer over the same connection, and no
// feature that is missing here. Throws SoapFault.
void CheckFeatures(const SoapMessage& request);

// The size that the answer may not exceed, where the request insists on one.
std::optional<size_t> MaxEnvelopeOf(const SoapMessage& request);

}  // namespace mpm
