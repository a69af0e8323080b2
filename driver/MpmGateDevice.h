/* What mpmgate.exe and mpmbox.sys say to each other over \\.\mpmgate.
 *
 * The driver pends what the mailbox's callers ask. The gate keeps one kMpmGateNext pending, learns from each
 * what happened, and answers requests and delivers messages by calls of its own. Plain C, for both sides. */
#pragma once

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdint.h>
#endif

#define MPMGATE_DEVICE_PATH "\\\\.\\mpmgate"

/* CTL_CODE(0x9C42, function, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS) */
#define MPMGATE_CODE(function) (((uint32_t)0x9C42 << 16) | (3u << 14) | ((uint32_t)(function) << 2))

/* Output: one MpmNotice and the input of the request behind it. Pends until something happened. Fails with
 * ERROR_INSUFFICIENT_BUFFER, and loses nothing, when the notice does not fit. */
#define MPMGATE_NEXT MPMGATE_CODE(0x800)
/* Input: MpmCompletion and the answer behind it. One that is longer than the caller's room fills it and ends
 * with ERROR_MORE_DATA there. ERROR_NOT_FOUND: the caller has gone. */
#define MPMGATE_COMPLETE MPMGATE_CODE(0x801)
/* Input: MpmDelivery and the message behind it. Pends until a read takes the message; one that is longer than
 * the reader's buffer fills it and ends the read with ERROR_MORE_DATA, and its rest is lost.
 * ERROR_INVALID_HANDLE: the mailbox handle is closed. */
#define MPMGATE_DELIVER MPMGATE_CODE(0x802)

/* The most that one request carries in either direction, and one message. */
#define MPMBOX_MAX_TRANSFER (1u << 20)
#define MPMBOX_MAX_HANDLES 2u

enum MpmNoticeKind {
    MpmHandleOpened = 1,
    MpmHandleListens = 2, /* its first read has come */
    MpmHandleClosed = 3,  /* nothing of this handle follows */
    MpmRequestArrived = 4,
    MpmRequestCancelled = 5, /* follows only on a request that was announced */
};

#pragma pack(push, 1)
struct MpmNotice {
    uint32_t kind;
    uint32_t handle;  /* which opening of the mailbox; numbers are not used again */
    uint32_t request; /* which request; 0 where none is meant */
    uint32_t code;    /* control code of the request */
    uint32_t room;    /* how many bytes of answer its caller takes */
    uint32_t size;    /* bytes of input behind this structure */
};

struct MpmCompletion {
    uint32_t request;
    uint32_t error; /* Win32 error for the caller's GetLastError; 0 for success */
};

struct MpmDelivery {
    uint32_t handle;
};
#pragma pack(pop)
