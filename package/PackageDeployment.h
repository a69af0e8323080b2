// What the service does because it runs from a package: it copies the programs and scripts that run outside
// of the package to the working folder, and takes the programs away again. All of it runs on the start
// thread, except the deletions, which the stop makes. Failures are logged and nothing else.
#pragma once

// Fills the names of g_pServiceState's package context. False without a package; the context is empty then.
bool IsRunningFromMSIXPackage();

// Copies the files and registers the scheduled tasks. No step depends on another's result. It must come after
// InitializeLogging: what could be changed by users is removed from the working folder first, and where that
// fails, m_bWorkingFolderSecure becomes false, and nothing is copied to the folder or run there.
void PreparePackage();

// The steps. A program that is there is overwritten.
void CopyKVMAgent();
void CopyWiFiSyncDataReader();
// The clean-up script is the mark of a package that has run before: where it is, nothing is done. Otherwise
// both scripts are copied and the recovery environment is configured, on a background thread.
void CopyTaskCleanupScript();

// At the end of a packaged service. The scripts stay for the clean-up after the package's end. Each blocks
// for a second while its program still runs.
void DeleteKVMAgent();
void DeleteWiFiSyncDataReader();
