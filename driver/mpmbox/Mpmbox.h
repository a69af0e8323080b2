/* A mailbox device for Wine and for Windows test machines.
 *
 * Two devices: the mailbox, which has the interface and the behaviour that the service expects, and the gate,
 * through which mpmgate.exe plays the firmware. The driver answers nothing by itself: requests and reads pend
 * until the gate completes them, their caller cancels them, or the gate goes.
 *
 * All state stands behind one spin lock. IRPs that are done are collected while it is held and completed
 * after it was released. Every pending IRP has a cancel routine, and only who takes that routine away may
 * complete the IRP. */
#pragma once

#include <ntddk.h>

#include "driver/MpmGateDevice.h"

#define MAILBOX_DEVICE_TYPE 0x9C41
#define MAILBOX_DEVICE L"\\Device\\mpmbox"
#define MAILBOX_INTERFACE L"ROOT#MPMBOX#0000#{70a9067b-708f-443c-84ba-bc391fdbf72b}"
#define POOL_TAG 0x626D706D /* "mpmb" */

/* A notice for the gate. It lies in the structure that it is about, and so needs no memory of its own. */
typedef struct Notice {
    LIST_ENTRY link;
    BOOLEAN queued;
    struct MpmNotice text;
    struct Handle* handle;   /* of the kinds about a handle */
    struct Request* request; /* of the kinds about a request */
} Notice;

/* One opening of the mailbox; the FsContext of its file object. */
typedef struct Handle {
    LIST_ENTRY link;
    ULONG number;
    LONG references;  /* the file object's, and one for each queued notice */
    BOOLEAN attached; /* to the gate that saw it open; no other gate gets to know it */
    BOOLEAN listening;
    LIST_ENTRY reads;      /* IRPs of the mailbox */
    LIST_ENTRY deliveries; /* IRPs of the gate, each with a message that waits for a read */
    Notice opened, listens, closed;
} Handle;

/* One DeviceIoControl on the mailbox. Outlives its IRP when the gate does not have the notice of its
 * cancellation yet.
 */
typedef struct Request {
    LIST_ENTRY link;
    PIRP irp;
    Handle* handle;
    Notice notice;
} Request;

extern KSPIN_LOCK g_lock;     /* guards all that follows */
extern LIST_ENTRY g_handles;  /* the attached ones */
extern LIST_ENTRY g_requests; /* whose IRP pends */
extern LIST_ENTRY g_notices;
extern LIST_ENTRY g_waiters;      /* IRPs of the gate that wait for a notice */
extern PFILE_OBJECT g_gateOpener; /* null: the mailbox is absent */

static inline IO_STACK_LOCATION* Stack(PIRP irp) {
    return IoGetCurrentIrpStackLocation(irp);
}

/* --- locked sections; `done` collects what Leave completes --- */

KIRQL Enter(PLIST_ENTRY done);
void Leave(KIRQL irql, PLIST_ENTRY done);
void Finish(PIRP irp, NTSTATUS status, ULONG_PTR information, PLIST_ENTRY done);
/* Finishes a read or a query with as much of the data as fits. */
void Fill(PIRP irp, void* buffer, ULONG room, const void* data, ULONG size, PLIST_ENTRY done);

/* Puts an IRP, already marked pending, at the end of a queue, or in none when it belongs to a request. */
void Pend(PIRP irp, PLIST_ENTRY queue, Request* request, PLIST_ENTRY done);
/* Takes a pending IRP out of its queue for its completion. FALSE: its cancel routine runs and will do it. */
BOOLEAN Take(PIRP irp);
/* The first IRP that is not being cancelled, or null. */
PIRP TakeFirst(PLIST_ENTRY queue);
void FinishQueue(PLIST_ENTRY queue, NTSTATUS status, PLIST_ENTRY done);

/* --- with the lock held: notices for the gate --- */

void QueueNotice(Notice* notice, ULONG kind, ULONG handle);
/* Frees what a notice holds that has been delivered, or never will be. */
void RetireNotice(Notice* notice);
/* Hands queued notices to the gate's pending calls. */
void TellGate(PLIST_ENTRY done);
/* Forgets a request whose IRP is completed without the gate. The gate gets a notice when it has the request.
 */
void Withdraw(Request* request);
void ReleaseHandle(Handle* handle);

/* --- with the lock held: handles --- */

/* Joins messages that wait with reads that wait, both in their order. */
void Match(Handle* handle, PLIST_ENTRY done);
/* Ends all that pends on a handle, and its tie to the gate. */
void Detach(Handle* handle, NTSTATUS status, PLIST_ENTRY done);

/* --- operations of the devices, at passive level --- */

NTSTATUS OpenMailbox(PFILE_OBJECT file);
void CleanUpMailbox(PFILE_OBJECT file);
void CloseMailbox(PFILE_OBJECT file);
NTSTATUS ReadMailbox(PIRP irp);
NTSTATUS ControlMailbox(PIRP irp);

/* Whether SetupAPI lists the mailbox and its path can be opened. */
void ShowMailbox(BOOLEAN present);
NTSTATUS OpenGate(PFILE_OBJECT file);
void CleanUpGate(PFILE_OBJECT file);
NTSTATUS ControlGate(PIRP irp);
