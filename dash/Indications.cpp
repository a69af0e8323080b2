#include "dash/Indications.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "base/FieldText.h"
#include "base/Log.h"
#include "dash/HttpsWebRequestPost.h"

void Indications::SubscribeIndication(const void* payload, size_t length) {
    LogInfo("Attempting Indication Subscribe. Send size is %zu", length);
    IndicationDestination record{};
    const size_t size = std::min(length, sizeof record);
    std::memcpy(&record, payload, size);
    if (TextInField(record.Uri).empty()) {
        LogInfo("URI is empty, so unsubscribing");
        m_bIndicationSubscribed = 0;
        return;
    }
    // The line names the host, in spite of its text.
    LogInfo("URI is defined, so subscribing to %s", std::string(TextInField(record.Host)));
    std::memcpy(&m_indicationDestination, &record, size);
    m_bIndicationSubscribed = 1;
}

void Indications::PostIndication(const void* payload, size_t length) {
    LogInfo("Attempting Indication Event");
    const std::string text(static_cast<const char*>(payload), length);
    if (m_bIndicationSubscribed != 1) {
        LogInfo("Not Posting Indication Alert");
        return;
    }
    LogInfo("Posting Indication Alert");
    const IndicationDestination& to = m_indicationDestination;
    HttpsWebRequestPost(std::string(TextInField(to.Host)), to.Port, std::string(TextInField(to.Uri)),
                        to.Secure != 0, text.c_str());
}
