// The size of the firmware's messages.
#pragma once

#include <cstddef>

// The largest message that one read of the mailbox delivers, its two-byte trailer included.
inline constexpr size_t kMailboxBufferSize = 0x20000;
inline constexpr size_t kMailboxTrailerSize = 2;
