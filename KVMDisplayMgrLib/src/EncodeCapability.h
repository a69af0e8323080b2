// Whether this machine can encode its screen, for the firmware.
#pragma once

#include "lux/Types.h"

class LUXFactoryHelper;
class MailBoxDriverInterface;

// The lowest version of the runtime that the service offers to the firmware, 1.4.38.0. Versions from
// LUX_HEADER_VERSION on can be loaded.
inline constexpr lux::LUXVersion LUX_MIN_VERSION = lux::MakeVersion(1, 4, 38, 0);

enum CapabilityMode { kEncoderCapability = 1, kConverterCapability = 2 };

// Returns 1 when an adapter has the component of this mode, else 0. The versions, of the runtime and the
// lowest one that is offered, are stored only when the runtime could be loaded.
int QueryEncodeCapability(CapabilityMode mode, lux::LUXVersion* current, lux::LUXVersion* minimum);
int QueryEncodeCapability(LUXFactoryHelper& factory, CapabilityMode mode, lux::LUXVersion* current,
                          lux::LUXVersion* minimum);

// Sends 1 when there is an AV1 encoder and the runtime is new enough, else 0. Returns what the query has
// returned. No failure is reported.
int SendLuxCapabilityToMPM(MailBoxDriverInterface& driver);
int SendLuxCapabilityToMPM(LUXFactoryHelper& factory, MailBoxDriverInterface& driver);
