// Owns a table of the IP helper library. The library reports the required size only when it is called with a
// buffer that is too small.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <memory>
#include <new>

template <class Table>
class IpHelperTable {
  public:
    enum class Outcome { Filled, NoFirstBuffer, NoGrownBuffer, CallFailed };

    // Calls `call` with a buffer of one Table. When that returns `tooSmall`, calls it once more with the size
    // that it reported. The call takes (Table*, ULONG* size in bytes) and returns a Win32 error.
    template <class Call>
    Outcome Fill(DWORD tooSmall, Call call) {
        ULONG size = sizeof(Table);
        if (!Allocate(size)) return Outcome::NoFirstBuffer;
        m_error = call(Get(), &size);
        if (m_error == tooSmall) {
            if (!Allocate(size)) return Outcome::NoGrownBuffer;
            m_error = call(Get(), &size);
        }
        return m_error == NO_ERROR ? Outcome::Filled : Outcome::CallFailed;
    }

    // Returns the error of the last call.
    DWORD Error() const { return m_error; }

    Table* Get() { return reinterpret_cast<Table*>(m_buffer.get()); }
    Table* operator->() { return Get(); }

  private:
    bool Allocate(size_t size) {
        m_buffer.reset();
        m_buffer.reset(new (std::nothrow) std::max_align_t[size / sizeof(std::max_align_t) + 1]());
        return m_buffer != nullptr;
    }

    std::unique_ptr<std::max_align_t[]> m_buffer;
    DWORD m_error = NO_ERROR;
};
