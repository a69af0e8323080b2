#include "state/HelperFolder.h"

#include "base/ExecutableFolder.h"
#include "base/Log.h"
#include "state/ServiceState.h"

// Programs outside of a package cannot run in it, so a packaged service has copies of them. Where users could
// replace the copies, none is run.
std::string GetKVMAgentFolder() {
    constexpr const char* kComplaint = "Failed to locate service binary path";
    if (!g_pServiceState->m_packageContext.GetIsPackage()) return ExecutableFolder(kComplaint);
    if (g_pServiceState->m_bWorkingFolderSecure) return g_pServiceState->GetWorkingFolder();
    LogInfo("%s", kComplaint);
    return {};
}
