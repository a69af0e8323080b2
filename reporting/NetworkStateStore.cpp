#include "reporting/NetworkStateStore.h"

#include <algorithm>

#include "service/WideText.h"

void NetworkStateStore::Store(const MultiNwInfo& record) {
    std::lock_guard lock(m_mutex);
    Clear();
    Count = record.Count;
    const size_t filled = std::min<size_t>(record.Count, m_interfaces.size());
    for (size_t i = 0; i < filled; ++i) {
        const NwInfoEntry& entry = record.Entries[i];
        m_interfaces[i] = {std::string(TextInField(entry.Name)),
                           std::string(TextInField(entry.MACAddress)),
                           entry.StatusInfo,
                           entry.LinkTechnology,
                           entry.AddressOrigin,
                           entry.IPv4Address};
    }
}

void NetworkStateStore::Clear() {
    std::lock_guard lock(m_mutex);
    Count = 0;
    m_interfaces = {};
}

uint32_t NetworkStateStore::GetCount() const {
    std::lock_guard lock(m_mutex);
    return Count;
}
