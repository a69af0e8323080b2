// The scheduled tasks of a packaged service, and the configuration of the recovery environment. Every command
// blocks until its program ends. Failures are logged and nothing else.
#pragma once

// Whether the task scheduler has a task of this name. The start thread.
bool TaskExists(const char* name);

// The steps of PreparePackage.
void RegisterStartZELServiceTask();
// Registers the task anew at each start. A working folder that users can change fails it with
// ERROR_ACCESS_DENIED, because the task runs a script from there.
void RegisterCleanUpTask();
void RegisterTrayUITask();

// Runs the script that configures the recovery environment, on a thread of its own. m_bRecoveryConfigDone is
// 0 meanwhile: it is cleared here, so a stop in the instant before does not wait. A working folder that users
// can change fails it with ERROR_ACCESS_DENIED.
void ConfigureRecoveryEnvironment();
