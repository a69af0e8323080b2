/* Pending, completing and cancelling IRPs. */
#include "driver/mpmbox/Mpmbox.h"

static PIRP IrpOf(PLIST_ENTRY entry) {
    return CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
}

void Finish(PIRP irp, NTSTATUS status, ULONG_PTR information, PLIST_ENTRY done) {
    irp->IoStatus.Status = status;
    irp->IoStatus.Information = information;
    InsertTailList(done, &irp->Tail.Overlay.ListEntry);
}

void Leave(KIRQL irql, PLIST_ENTRY done) {
    KeReleaseSpinLock(&g_lock, irql);
    while (!IsListEmpty(done))
        IoCompleteRequest(IrpOf(RemoveHeadList(done)), IO_NO_INCREMENT);
}

void Fill(PIRP irp, void* buffer, ULONG room, const void* data, ULONG size, PLIST_ENTRY done) {
    const ULONG fitting = size < room ? size : room;
    if (fitting) RtlCopyMemory(buffer, data, fitting);
    Finish(irp, size > room ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS, fitting, done);
}

KIRQL Enter(PLIST_ENTRY done) {
    KIRQL irql;
    InitializeListHead(done);
    KeAcquireSpinLock(&g_lock, &irql);
    return irql;
}

BOOLEAN Take(PIRP irp) {
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    if (IoSetCancelRoutine(irp, NULL)) return TRUE;
    InitializeListHead(&irp->Tail.Overlay.ListEntry);
    return FALSE;
}

PIRP TakeFirst(PLIST_ENTRY queue) {
    while (!IsListEmpty(queue)) {
        PIRP irp = IrpOf(queue->Flink);
        if (Take(irp)) return irp;
    }
    return NULL;
}

static void NTAPI CancelIrp(PDEVICE_OBJECT device, PIRP irp) {
    LIST_ENTRY done;
    KIRQL irql;
    Request* request;
    UNREFERENCED_PARAMETER(device);
    IoReleaseCancelSpinLock(irp->CancelIrql);
    irql = Enter(&done);
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    request = irp->Tail.Overlay.DriverContext[0];
    if (request) Withdraw(request);
    Finish(irp, STATUS_CANCELLED, 0, &done);
    TellGate(&done);
    Leave(irql, &done);
}

void Pend(PIRP irp, PLIST_ENTRY queue, Request* request, PLIST_ENTRY done) {
    irp->Tail.Overlay.DriverContext[0] = request;
    if (queue)
        InsertTailList(queue, &irp->Tail.Overlay.ListEntry);
    else
        InitializeListHead(&irp->Tail.Overlay.ListEntry);
    IoSetCancelRoutine(irp, CancelIrp);
    if (irp->Cancel && Take(irp)) {
        if (request) Withdraw(request);
        Finish(irp, STATUS_CANCELLED, 0, done);
    }
}

void FinishQueue(PLIST_ENTRY queue, NTSTATUS status, PLIST_ENTRY done) {
    PIRP irp;
    while ((irp = TakeFirst(queue)) != NULL)
        Finish(irp, status, 0, done);
}
