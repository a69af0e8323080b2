/* The gate device: how the firmware's side answers. */
#include "driver/mpmbox/Mpmbox.h"

#define MAILBOX_PRESENCE_KEY                                                    \
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\DeviceClasses\\" \
    L"{70a9067b-708f-443c-84ba-bc391fdbf72b}\\##?#" MAILBOX_INTERFACE L"\\#\\Control"

/* SetupAPI lists an interface while its "Linked" is 1; its path opens while the link is there. */
void ShowMailbox(BOOLEAN present) {
    UNICODE_STRING link, device;
    ULONG linked = present;
    RtlInitUnicodeString(&link, L"\\??\\" MAILBOX_INTERFACE);
    RtlInitUnicodeString(&device, MAILBOX_DEVICE);
    if (present)
        IoCreateSymbolicLink(&link, &device);
    else
        IoDeleteSymbolicLink(&link);
    RtlWriteRegistryValue(RTL_REGISTRY_ABSOLUTE, (PWSTR)MAILBOX_PRESENCE_KEY, (PWSTR)L"Linked", REG_DWORD,
                          &linked, sizeof linked);
}

NTSTATUS OpenGate(PFILE_OBJECT file) {
    LIST_ENTRY done;
    KIRQL irql = Enter(&done);
    const BOOLEAN first = !g_gateOpener;
    if (first) g_gateOpener = file;
    Leave(irql, &done);
    if (!first) return STATUS_SHARING_VIOLATION;
    ShowMailbox(TRUE);
    return STATUS_SUCCESS;
}

/* The firmware has gone: all that pends fails, and handles that are open stay dead. */
void CleanUpGate(PFILE_OBJECT file) {
    LIST_ENTRY done;
    KIRQL irql;
    if (file != g_gateOpener) return;
    ShowMailbox(FALSE);
    irql = Enter(&done);
    g_gateOpener = NULL;
    while (!IsListEmpty(&g_handles)) {
        Handle* handle = CONTAINING_RECORD(g_handles.Flink, Handle, link);
        Detach(handle, STATUS_DEVICE_NOT_CONNECTED, &done);
    }
    FinishQueue(&g_waiters, STATUS_CANCELLED, &done);
    while (!IsListEmpty(&g_notices))
        RetireNotice(CONTAINING_RECORD(g_notices.Flink, Notice, link));
    Leave(irql, &done);
}

static NTSTATUS Next(PIRP irp) {
    LIST_ENTRY done;
    KIRQL irql = Enter(&done);
    IoMarkIrpPending(irp);
    Pend(irp, &g_waiters, NULL, &done);
    TellGate(&done);
    Leave(irql, &done);
    return STATUS_PENDING;
}

static Request* FindRequest(ULONG number) {
    PLIST_ENTRY entry;
    for (entry = g_requests.Flink; entry != &g_requests; entry = entry->Flink) {
        Request* request = CONTAINING_RECORD(entry, Request, link);
        if (request->notice.text.request == number && !request->notice.queued) return request;
    }
    return NULL;
}

/* Where the answer goes; no room at all when the caller's buffer can't be reached. */
static UCHAR* AnswerBuffer(PIRP irp, ULONG* room) {
    IO_STACK_LOCATION* stack = Stack(irp);
    UCHAR* buffer = irp->AssociatedIrp.SystemBuffer;
    *room = stack->Parameters.DeviceIoControl.OutputBufferLength;
    if ((stack->Parameters.DeviceIoControl.IoControlCode & 3) != METHOD_BUFFERED)
        buffer = irp->MdlAddress ? MmGetSystemAddressForMdlSafe(irp->MdlAddress, NormalPagePriority) : NULL;
    if (!buffer) *room = 0;
    return buffer;
}

/* The statuses of this range are Win32 errors; RtlNtStatusToDosError gives them back. */
static NTSTATUS StatusOf(ULONG error) {
    return (NTSTATUS)(0xC0010000u | (error & 0xFFFF));
}

static NTSTATUS Complete(PIRP gateIrp) {
    LIST_ENTRY done;
    KIRQL irql;
    Request* request;
    NTSTATUS status = STATUS_NOT_FOUND;
    const struct MpmCompletion* completion = gateIrp->AssociatedIrp.SystemBuffer;
    const ULONG size = Stack(gateIrp)->Parameters.DeviceIoControl.InputBufferLength;
    if (size < sizeof *completion) return STATUS_INVALID_PARAMETER;
    irql = Enter(&done);
    request = FindRequest(completion->request);
    if (request && Take(request->irp)) {
        PIRP irp = request->irp;
        ULONG room;
        UCHAR* answer = AnswerBuffer(irp, &room);
        RemoveEntryList(&request->link);
        ExFreePoolWithTag(request, POOL_TAG);
        if (completion->error)
            Finish(irp, StatusOf(completion->error), 0, &done);
        else
            Fill(irp, answer, room, completion + 1, size - sizeof *completion, &done);
        status = STATUS_SUCCESS;
    }
    Leave(irql, &done);
    return status;
}

static NTSTATUS Deliver(PIRP irp) {
    LIST_ENTRY done;
    KIRQL irql;
    PLIST_ENTRY entry;
    NTSTATUS status = STATUS_INVALID_HANDLE;
    const struct MpmDelivery* delivery = irp->AssociatedIrp.SystemBuffer;
    const ULONG size = Stack(irp)->Parameters.DeviceIoControl.InputBufferLength;
    if (size < sizeof *delivery || size - sizeof *delivery > MPMBOX_MAX_TRANSFER)
        return STATUS_INVALID_PARAMETER;
    irql = Enter(&done);
    for (entry = g_handles.Flink; entry != &g_handles; entry = entry->Flink) {
        Handle* handle = CONTAINING_RECORD(entry, Handle, link);
        if (handle->number != delivery->handle) continue;
        IoMarkIrpPending(irp);
        Pend(irp, &handle->deliveries, NULL, &done);
        Match(handle, &done);
        status = STATUS_PENDING;
        break;
    }
    Leave(irql, &done);
    return status;
}

NTSTATUS ControlGate(PIRP irp) {
    if (Stack(irp)->FileObject != g_gateOpener) return STATUS_SHARING_VIOLATION;
    switch (Stack(irp)->Parameters.DeviceIoControl.IoControlCode) {
        case MPMGATE_NEXT:
            return Next(irp);
        case MPMGATE_COMPLETE:
            return Complete(irp);
        case MPMGATE_DELIVER:
            return Deliver(irp);
        default:
            return STATUS_INVALID_DEVICE_REQUEST;
    }
}
