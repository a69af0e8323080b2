/* The mailbox device: what its callers may do. */
#include "driver/mpmbox/Mpmbox.h"

static ULONG g_lastNumber; /* of a handle or a request; guarded by g_lock */

void Match(Handle* handle, PLIST_ENTRY done) {
    while (!IsListEmpty(&handle->reads)) {
        PIRP delivery = TakeFirst(&handle->deliveries);
        PIRP read;
        ULONG size, room;
        if (!delivery) return;
        read = TakeFirst(&handle->reads);
        if (!read) {
            Pend(delivery, &handle->deliveries, NULL, done);
            return;
        }
        size = Stack(delivery)->Parameters.DeviceIoControl.InputBufferLength - sizeof(struct MpmDelivery);
        room = Stack(read)->Parameters.Read.Length;
        Fill(read, read->AssociatedIrp.SystemBuffer, room,
             (UCHAR*)delivery->AssociatedIrp.SystemBuffer + sizeof(struct MpmDelivery), size, done);
        Finish(delivery, STATUS_SUCCESS, 0, done);
    }
}

void Detach(Handle* handle, NTSTATUS status, PLIST_ENTRY done) {
    PLIST_ENTRY entry = g_requests.Flink;
    while (entry != &g_requests) {
        Request* request = CONTAINING_RECORD(entry, Request, link);
        PIRP irp = request->irp;
        entry = entry->Flink;
        if (request->handle != handle || !Take(irp)) continue;
        Withdraw(request);
        Finish(irp, status, 0, done);
    }
    FinishQueue(&handle->reads, status, done);
    FinishQueue(&handle->deliveries, STATUS_INVALID_HANDLE, done);
    handle->attached = FALSE;
    RemoveEntryList(&handle->link);
}

static void* Allocate(SIZE_T size) {
    void* block = ExAllocatePoolWithTag(NonPagedPoolNx, size, POOL_TAG);
    if (block) RtlZeroMemory(block, size);
    return block;
}

NTSTATUS OpenMailbox(PFILE_OBJECT file) {
    LIST_ENTRY done;
    PLIST_ENTRY entry;
    ULONG count = 0;
    NTSTATUS status = STATUS_SUCCESS;
    KIRQL irql;
    Handle* handle = Allocate(sizeof *handle);
    if (!handle) return STATUS_INSUFFICIENT_RESOURCES;
    irql = Enter(&done);
    for (entry = g_handles.Flink; entry != &g_handles; entry = entry->Flink)
        ++count;
    if (!g_gateOpener)
        status = STATUS_DEVICE_NOT_CONNECTED;
    else if (count >= MPMBOX_MAX_HANDLES)
        status = STATUS_SHARING_VIOLATION;
    if (NT_SUCCESS(status)) {
        handle->number = ++g_lastNumber;
        handle->references = 1;
        handle->attached = TRUE;
        handle->opened.handle = handle->listens.handle = handle->closed.handle = handle;
        InitializeListHead(&handle->reads);
        InitializeListHead(&handle->deliveries);
        InsertTailList(&g_handles, &handle->link);
        file->FsContext = handle;
        QueueNotice(&handle->opened, MpmHandleOpened, handle->number);
        TellGate(&done);
    }
    Leave(irql, &done);
    if (!NT_SUCCESS(status)) ExFreePoolWithTag(handle, POOL_TAG);
    return status;
}

void CleanUpMailbox(PFILE_OBJECT file) {
    LIST_ENTRY done;
    Handle* handle = file->FsContext;
    KIRQL irql = Enter(&done);
    if (handle && handle->attached) {
        Detach(handle, STATUS_CANCELLED, &done);
        QueueNotice(&handle->closed, MpmHandleClosed, handle->number);
        TellGate(&done);
    }
    Leave(irql, &done);
}

void CloseMailbox(PFILE_OBJECT file) {
    LIST_ENTRY done;
    KIRQL irql = Enter(&done);
    if (file->FsContext) ReleaseHandle(file->FsContext);
    file->FsContext = NULL;
    Leave(irql, &done);
}

/* Wine hands out a file object also when its opening failed. */
static BOOLEAN IsUsable(const Handle* handle) {
    return handle && handle->attached;
}

NTSTATUS ReadMailbox(PIRP irp) {
    LIST_ENTRY done;
    Handle* handle = Stack(irp)->FileObject->FsContext;
    NTSTATUS status = STATUS_PENDING;
    KIRQL irql = Enter(&done);
    if (!IsUsable(handle)) {
        status = STATUS_DEVICE_NOT_CONNECTED;
    } else {
        IoMarkIrpPending(irp);
        Pend(irp, &handle->reads, NULL, &done);
        if (!handle->listening) {
            handle->listening = TRUE;
            QueueNotice(&handle->listens, MpmHandleListens, handle->number);
            TellGate(&done);
        }
        Match(handle, &done);
    }
    Leave(irql, &done);
    return status;
}

static NTSTATUS CheckRequest(IO_STACK_LOCATION* stack) {
    const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
    /* METHOD_NEITHER would hand over the caller's own, unchecked addresses. */
    if (DEVICE_TYPE_FROM_CTL_CODE(code) != MAILBOX_DEVICE_TYPE || (code & 3) == METHOD_NEITHER)
        return STATUS_INVALID_DEVICE_REQUEST;
    if (stack->Parameters.DeviceIoControl.InputBufferLength > MPMBOX_MAX_TRANSFER)
        return STATUS_INVALID_BUFFER_SIZE;
    return STATUS_SUCCESS;
}

NTSTATUS ControlMailbox(PIRP irp) {
    LIST_ENTRY done;
    IO_STACK_LOCATION* stack = Stack(irp);
    Handle* handle = stack->FileObject->FsContext;
    KIRQL irql;
    Request* request;
    NTSTATUS status = CheckRequest(stack);
    if (!NT_SUCCESS(status)) return status;
    request = Allocate(sizeof *request);
    if (!request) return STATUS_INSUFFICIENT_RESOURCES;
    irql = Enter(&done);
    if (!IsUsable(handle)) {
        Leave(irql, &done);
        ExFreePoolWithTag(request, POOL_TAG);
        return STATUS_DEVICE_NOT_CONNECTED;
    }
    request->irp = irp;
    request->handle = handle;
    request->notice.request = request;
    request->notice.text.request = ++g_lastNumber;
    request->notice.text.code = stack->Parameters.DeviceIoControl.IoControlCode;
    request->notice.text.room = stack->Parameters.DeviceIoControl.OutputBufferLength;
    request->notice.text.size = stack->Parameters.DeviceIoControl.InputBufferLength;
    if (request->notice.text.room > MPMBOX_MAX_TRANSFER) request->notice.text.room = MPMBOX_MAX_TRANSFER;
    IoMarkIrpPending(irp);
    InsertTailList(&g_requests, &request->link);
    QueueNotice(&request->notice, MpmRequestArrived, handle->number);
    Pend(irp, NULL, request, &done);
    TellGate(&done);
    Leave(irql, &done);
    return STATUS_PENDING;
}
