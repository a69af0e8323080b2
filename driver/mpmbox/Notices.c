/* The notices for the gate, in the order of their events. */
#include "driver/mpmbox/Mpmbox.h"

void ReleaseHandle(Handle* handle) {
    if (--handle->references == 0) ExFreePoolWithTag(handle, POOL_TAG);
}

void QueueNotice(Notice* notice, ULONG kind, ULONG number) {
    notice->text.kind = kind;
    notice->text.handle = number;
    notice->queued = TRUE;
    if (notice->handle) ++notice->handle->references;
    InsertTailList(&g_notices, &notice->link);
}

void RetireNotice(Notice* notice) {
    RemoveEntryList(&notice->link);
    notice->queued = FALSE;
    if (notice->handle)
        ReleaseHandle(notice->handle);
    else if (notice->text.kind == MpmRequestCancelled)
        ExFreePoolWithTag(notice->request, POOL_TAG);
}

void Withdraw(Request* request) {
    RemoveEntryList(&request->link);
    if (!request->notice.queued && g_gateOpener && request->handle->attached) {
        request->notice.text.size = 0;
        QueueNotice(&request->notice, MpmRequestCancelled, request->handle->number);
        return;
    }
    if (request->notice.queued) RetireNotice(&request->notice);
    ExFreePoolWithTag(request, POOL_TAG);
}

void TellGate(PLIST_ENTRY done) {
    while (!IsListEmpty(&g_notices)) {
        Notice* notice = CONTAINING_RECORD(g_notices.Flink, Notice, link);
        const ULONG size = sizeof(struct MpmNotice) + notice->text.size;
        PIRP waiter = TakeFirst(&g_waiters);
        UCHAR* buffer;
        if (!waiter) return;
        if (Stack(waiter)->Parameters.DeviceIoControl.OutputBufferLength < size) {
            Finish(waiter, STATUS_BUFFER_TOO_SMALL, 0, done);
            continue;
        }
        buffer = waiter->AssociatedIrp.SystemBuffer;
        RtlCopyMemory(buffer, &notice->text, sizeof notice->text);
        if (notice->text.size)
            RtlCopyMemory(buffer + sizeof notice->text, notice->request->irp->AssociatedIrp.SystemBuffer,
                          notice->text.size);
        RetireNotice(notice);
        Finish(waiter, STATUS_SUCCESS, size, done);
    }
}
