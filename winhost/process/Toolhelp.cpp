// Snapshots of the PC's processes.
#include <tlhelp32.h>
#include <winbase.h>

#include <atomic>
#include <memory>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/process/ProcessList.h"

using winhost::Fail;
using winhost::HandleTable;

namespace {

constexpr LONG kNormalPriority = 8;

class Snapshot : public winhost::Object {
  public:
    explicit Snapshot(std::vector<winhost::ProcessEntry> entries) : m_entries(std::move(entries)) {}

    void Rewind() { m_next = 0; }
    // Null at the end.
    const winhost::ProcessEntry* Next() {
        const size_t place = m_next.load();
        if (place == m_entries.size()) return nullptr;
        m_next = place + 1;
        return &m_entries[place];
    }

  private:
    const std::vector<winhost::ProcessEntry> m_entries;
    std::atomic<size_t> m_next{0};
};

BOOL Fill(Snapshot& snapshot, PROCESSENTRY32& result) {
    const winhost::ProcessEntry* const entry = snapshot.Next();
    if (!entry) return Fail(ERROR_NO_MORE_FILES);
    const DWORD size = result.dwSize;
    result = {};
    result.dwSize = size;
    result.th32ProcessID = entry->id;
    result.cntThreads = entry->threads;
    result.th32ParentProcessID = entry->parent;
    result.pcPriClassBase = kNormalPriority;
    entry->name.copy(result.szExeFile, sizeof result.szExeFile - 1);
    return TRUE;
}

BOOL Read(HANDLE handle, PROCESSENTRY32* result, bool first) {
    const auto snapshot = HandleTable::Instance().Find<Snapshot>(handle);
    if (!snapshot) return Fail(ERROR_INVALID_HANDLE);
    if (!result) return Fail(ERROR_NOACCESS);
    if (result->dwSize < sizeof *result) return Fail(ERROR_BAD_LENGTH);
    if (first) snapshot->Rewind();
    return Fill(*snapshot, *result);
}

}  // namespace

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId) {
    WINHOST_GATE("CreateToolhelp32Snapshot", INVALID_HANDLE_VALUE);
    if ((flags != TH32CS_SNAPPROCESS && flags != TH32CS_SNAPALL) || processId != 0)
        return Fail(ERROR_NOT_SUPPORTED, INVALID_HANDLE_VALUE);
    const HANDLE handle = HandleTable::Instance().Add(std::make_shared<Snapshot>(winhost::ListProcesses()));
    return handle ? handle : Fail(ERROR_NO_SYSTEM_RESOURCES, INVALID_HANDLE_VALUE);
}

BOOL Process32First(HANDLE snapshot, LPPROCESSENTRY32 entry) {
    WINHOST_GATE("Process32First", FALSE);
    return Read(snapshot, entry, true);
}

BOOL Process32Next(HANDLE snapshot, LPPROCESSENTRY32 entry) {
    WINHOST_GATE("Process32Next", FALSE);
    return Read(snapshot, entry, false);
}
