// Changes the password of the host's service account in the directory, as the firmware commands, and reports
// the result to the firmware. The account has the name of the host.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/Secret.h"
#include "mailbox/IdentityRecords.h"

class MailBoxDriverInterface;

// What the worker of one command owns.
struct AdPasswordContext {
    Wiped<ADPasswordUpdate> update;
    uint32_t status = 0;
    MailBoxDriverInterface* mailbox = nullptr;
};
static_assert(sizeof(AdPasswordContext) == 272);

// Copies the firmware's passwords, truncated to the size of the record, and starts a detached thread that
// changes the password. A command does not wait for an earlier one. Called on the mailbox read thread. Throws
// std::system_error when the thread cannot be created.
void HandleAdPasswordCommand(const void* payload, size_t size);

// The body of that thread. Blocks until the directory and the firmware have answered. Wipes its own copies of
// the passwords.
void AdPasswordWorker(AdPasswordContext& context);
