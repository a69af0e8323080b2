// The firmware's alerts, which the service posts to the console that the firmware names.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "mailbox/IndicationRecord.h"

// All methods are called on the mailbox read thread.
class Indications {
  public:
    // Stores the destination of later alerts, in place of an earlier one. An empty path means that there is
    // none any more; the stored destination then stays as it is. A short record replaces only its own bytes.
    void SubscribeIndication(const void* payload, size_t length);

    // Posts the text, up to its first NUL, to the stored destination, if there is one. Blocks until it has
    // been sent, which can take 40 seconds. An alert that cannot be delivered is lost.
    void PostIndication(const void* payload, size_t length);

    std::atomic<uint8_t> m_bIndicationSubscribed{0};
    IndicationDestination m_indicationDestination{};
};
