// Certificate enrolment for the firmware. The firmware sends a certificate signing request; certreq.exe
// submits it to the enterprise's authority, and the service returns the certificate with its root.
#pragma once

#include <cstddef>

// Copies the request, truncated to the size of the record, and starts a detached thread that obtains the
// certificate and answers the firmware. Returns at once. Called on the mailbox read thread. Throws
// std::system_error when the thread cannot be created.
//
// The firmware gets an answer in every case, unless certreq.exe still runs when the service stops. Two
// enrolments at once work on the same files.
void HandleCsrCommand(const void* payload, size_t size);
