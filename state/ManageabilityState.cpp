// The firmware's description of itself.
#include <cstring>

#include "state/ServiceState.h"

void ServiceState::UpdateManageabilityStatus() {
    constexpr const char* kNotAvailable = "Not Available";
    ManageabilityStatus status{};
    m_mailBoxDriverInterface.GetZELVersion(&status);
    status.MPMVersion[sizeof status.MPMVersion - 1] = '\0';
    if (status.MPMVersion[0] == '\0') std::strcpy(status.MPMVersion, kNotAvailable);
    {
        std::lock_guard lock(m_manageabilityMutex);
        m_ManageabilityStatus = status;
        m_provisionStatus = status.ProvisionStatus;
        m_vorkVersion = status.uVORKVersion;
    }
    if (std::strcmp(status.MPMVersion, kNotAvailable) != 0) m_bMPMVersionValid = 1;
}

ManageabilityStatus ServiceState::GetManageabilityStatus() const {
    std::lock_guard lock(m_manageabilityMutex);
    return m_ManageabilityStatus;
}
