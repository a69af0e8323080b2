/* The driver's two devices and the routes to their operations. */
#include "driver/mpmbox/Mpmbox.h"

#define GATE_DEVICE L"\\Device\\mpmgate"
#define GATE_LINK L"\\??\\mpmgate"

static PDEVICE_OBJECT g_mailbox, g_gate;

KSPIN_LOCK g_lock;
LIST_ENTRY g_handles, g_requests, g_notices, g_waiters;
PFILE_OBJECT g_gateOpener;

static NTSTATUS Route(PDEVICE_OBJECT device, PIRP irp) {
    PFILE_OBJECT file = Stack(irp)->FileObject;
    const BOOLEAN mailbox = device == g_mailbox;
    switch (Stack(irp)->MajorFunction) {
        case IRP_MJ_CREATE:
            return mailbox ? OpenMailbox(file) : OpenGate(file);
        case IRP_MJ_CLEANUP:
            mailbox ? CleanUpMailbox(file) : CleanUpGate(file);
            return STATUS_SUCCESS;
        case IRP_MJ_CLOSE:
            /* Wine closes without a clean-up before it. */
            mailbox ? CleanUpMailbox(file) : CleanUpGate(file);
            if (mailbox) CloseMailbox(file);
            return STATUS_SUCCESS;
        case IRP_MJ_READ:
            return mailbox ? ReadMailbox(irp) : STATUS_INVALID_DEVICE_REQUEST;
        case IRP_MJ_DEVICE_CONTROL:
            return mailbox ? ControlMailbox(irp) : ControlGate(irp);
        default:
            return STATUS_INVALID_DEVICE_REQUEST;
    }
}

static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    const NTSTATUS status = Route(device, irp);
    if (status != STATUS_PENDING) {
        irp->IoStatus.Status = status;
        irp->IoStatus.Information = 0;
        IoCompleteRequest(irp, IO_NO_INCREMENT);
    }
    return status;
}

static void NTAPI Unload(PDRIVER_OBJECT driver) {
    UNICODE_STRING link;
    UNREFERENCED_PARAMETER(driver);
    RtlInitUnicodeString(&link, GATE_LINK);
    IoDeleteSymbolicLink(&link);
    ShowMailbox(FALSE);
    if (g_gate) IoDeleteDevice(g_gate);
    if (g_mailbox) IoDeleteDevice(g_mailbox);
}

static NTSTATUS AddDevice(PDRIVER_OBJECT driver, const WCHAR* name, DEVICE_TYPE type,
                          PDEVICE_OBJECT* device) {
    UNICODE_STRING deviceName;
    NTSTATUS status;
    RtlInitUnicodeString(&deviceName, name);
    status = IoCreateDevice(driver, 0, &deviceName, type, FILE_DEVICE_SECURE_OPEN, FALSE, device);
    if (!NT_SUCCESS(status)) return status;
    (*device)->Flags |= DO_BUFFERED_IO;
    (*device)->Flags &= ~DO_DEVICE_INITIALIZING;
    return status;
}

static NTSTATUS AddDevices(PDRIVER_OBJECT driver) {
    UNICODE_STRING link, device;
    NTSTATUS status = AddDevice(driver, MAILBOX_DEVICE, MAILBOX_DEVICE_TYPE, &g_mailbox);
    if (NT_SUCCESS(status)) status = AddDevice(driver, GATE_DEVICE, FILE_DEVICE_UNKNOWN, &g_gate);
    if (!NT_SUCCESS(status)) return status;
    RtlInitUnicodeString(&link, GATE_LINK);
    RtlInitUnicodeString(&device, GATE_DEVICE);
    return IoCreateSymbolicLink(&link, &device);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING path) {
    NTSTATUS status;
    UNREFERENCED_PARAMETER(path);
    KeInitializeSpinLock(&g_lock);
    InitializeListHead(&g_handles);
    InitializeListHead(&g_requests);
    InitializeListHead(&g_notices);
    InitializeListHead(&g_waiters);
    driver->DriverUnload = Unload;
    driver->MajorFunction[IRP_MJ_CREATE] = Dispatch;
    driver->MajorFunction[IRP_MJ_CLEANUP] = Dispatch;
    driver->MajorFunction[IRP_MJ_CLOSE] = Dispatch;
    driver->MajorFunction[IRP_MJ_READ] = Dispatch;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch;
    ShowMailbox(FALSE);
    status = AddDevices(driver);
    if (!NT_SUCCESS(status)) Unload(driver);
    return status;
}
