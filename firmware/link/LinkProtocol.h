// The frames that join the host side of the mailbox (winhost's device, or mpmgate in front of mpmbox.sys) to
// the simulated firmware, over a Unix socket or TCP loopback.
//
// Every handle that is opened on the mailbox device is one connection. Requests are answered on the
// connection they came by, in any order, matched by id. The first read on a handle sends Listen: from then on
// the firmware's messages arrive on that connection, one frame a message; the host takes a frame from the
// socket only when a read is pending for it, so that an unread message waits in the socket and TCP holds the
// firmware back.
//
// Over a Unix socket the bytes of large requests and messages go through memory that both processes have
// mapped (LinkMemory.h), so that the firmware handles an input where the host has copied it, as with a
// driver. The first Listen or large request for which the socket has room carries the descriptor of that
// memory (SCM_RIGHTS). It is not confirmed: a firmware that cannot map it ends the connection with the first
// large request. Without memory, or without room in it, the bytes go through the socket. Unread messages wait
// in the memory until it is full.
#pragma once

#include <cstdint>

namespace mpmlink {

enum class Kind : uint32_t {
    Request = 1,   // host to firmware: id, code = control code, value = room for the answer, payload = input
    Response = 2,  // firmware to host: id and code of the request, value = Win32 error, payload = output
    Cancel = 3,    // host to firmware: id of a request whose caller has gone; it is not answered any more
    Listen = 4,    // host to firmware: messages go to this connection
    Message = 5,   // firmware to host: payload = the bytes that complete one read, trailer included
    LargeRequest = 6,  // host to firmware: as Request, but the input is in memory (LargeRequest)
    LargeMessage = 7,  // firmware to host: as Message, but id = position in memory, value = number of bytes
};

#pragma pack(push, 1)
struct Header {
    uint32_t size;  // bytes of payload behind this header, at most kMaxPayload
    Kind kind;
    uint32_t id;     // of a request, or see Kind; 0 in other frames
    uint32_t code;   // control code of a request; 0 in other frames
    uint32_t value;  // see Kind
};

struct LargeRequest {
    Header header;
    uint32_t position;
    uint32_t size;  // bytes of input
};
#pragma pack(pop)
static_assert(sizeof(Header) == 20);

// What has fewer bytes goes through the socket, with its header.
inline constexpr uint32_t kLarge = 16u << 10;

// A frame above this is a broken peer: the connection is closed.
inline constexpr uint32_t kMaxPayload = 1u << 20;

}  // namespace mpmlink
