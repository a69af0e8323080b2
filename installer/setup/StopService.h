// The end of a service whose files are to be replaced or removed.
#pragma once

// Stops the service, if it runs, and waits until its process has ended: the SCM counts it as stopped before
// that, and its files are still in use. False with the last error, also when there is no such service.
bool StopService();
